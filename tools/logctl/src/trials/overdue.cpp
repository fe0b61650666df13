#include "trials/overdue.hpp"

#include <sstream>

#include <fmt/format.h>
#include <syslog.h>

#include "folded.hpp"
#include "output.hpp"
#include "stored.hpp"

namespace xpon::logctl {

namespace {

/// For the system's log; a line for each, however many settings it is about.
void report(cfgdb::EndedTrial const& ended) {
    std::istringstream lines{text_of(ended)};
    for (std::string line; std::getline(lines, line);) {
        syslog(LOG_LOCAL0 | LOG_NOTICE, "logctl: trial %lld of %s, whose time is over: %s",
               static_cast<long long>(ended.trial.number), ended.trial.author.c_str(), line.c_str());
    }
}

} // namespace

std::string text_of(cfgdb::EndedTrial const& ended) {
    std::string text = folded_lines(ended.undone);
    for (auto const& path : ended.left) {
        text += fmt::format("{}: stays, another receiver has that address and port now\n", path);
    }
    return text;
}

core::Result<void> end_overdue_trials(Context const& context) {
    if (!has_database(context.database)) {
        return core::success();
    }
    OUTCOME_TRY(trials, cfgdb::pending_trials(context.database));
    std::vector<cfgdb::EndedTrial> ended;
    core::Result<void> result = core::success();
    for (auto const& trial : trials) {
        if (!trial.terms.end.over()) {
            continue;
        }
        if (auto undone = cfgdb::end_overdue_trial(trial.number, context.database); undone.has_value()) {
            ended.push_back(std::move(undone).value());
        } else if (undone.error().error != core::Error::Empty &&        // ended by another process
                   undone.error().error != core::Error::InvalidState) { // or extended just then
            result = undone.error();
        }
    }
    for (auto const& one : ended) { // the log may be slow
        report(one);
    }
    return result;
}

} // namespace xpon::logctl
