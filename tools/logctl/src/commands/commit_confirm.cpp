#include <algorithm>
#include <memory>
#include <optional>
#include <span>

#include "commands/change.hpp"
#include "core/failure.hpp"
#include "number_in.hpp"
#include "trials/duration.hpp"
#include "trials/guard.hpp"
#include "trials/overdue.hpp"
#include "trials/start.hpp"
#include "xpon/cfgdb/printable.hpp"

namespace xpon::logctl {

namespace {

struct Options : ChangeOptions {
    std::vector<std::string> words;
    bool recover = false;
    std::optional<std::int64_t> guard;
};

core::Result<std::int64_t> seconds_of(std::string const& minutes) {
    constexpr double longest = 7 * 24 * 60;
    auto const number = number_in<double>(minutes);
    if (!number || !(*number > 0 && *number <= longest)) {
        return core::fail(core::Error::InvalidInputArg,
                          "MINUTES: {} is not allowed; it must be more than 0 and at most {}",
                          cfgdb::printable(minutes), longest);
    }
    return seconds_in("MINUTES", minutes + "m");
}

core::Result<int> commit_confirm(Context const& context, Options const& options) {
    if (options.recover) {
        OUTCOME_TRY(end_overdue_trials(context));
        return 0;
    }
    if (options.guard) {
        return guard_trial(context, *options.guard);
    }
    std::ignore = end_overdue_trials(context); // they would be in the way
    OUTCOME_TRY(seconds, seconds_of(options.words.front()));
    cfgdb::Transaction transaction;
    OUTCOME_TRY(add_assignments(std::span{options.words}.subspan(1), transaction));
    return start_trial(std::move(transaction), {.seconds = seconds}, context, options);
}

/// What is wrong with the words, unless logctl itself has called it.
std::string complaint(Options const& options) {
    if (options.recover || options.guard) {
        return {};
    }
    return options.words.size() < 2 ? "MINUTES PATH=VALUE is required, such as 5 syslog.file.level=debug"
                                    : complaint_about(std::span{options.words}.subspan(1));
}

} // namespace

Action commit_confirm_command(Arguments& arguments) {
    auto const options = std::make_shared<Options>();
    arguments.add({"MINUTES PATH=VALUE",
                   "How long to wait for logctl confirm, also a part of a minute; then as for set"},
                  options->words);
    add_change_options(arguments, *options);
    // For the timer and the unit that runs before the daemon; for the process in the background.
    arguments.add({.name = "--recover", .help = "", .hidden = true}, options->recover);
    arguments.add({.name = "--guard", .help = "", .hidden = true}, options->guard);
    arguments.verify([options] { return complaint(*options); });
    return [options](Context const& context) { return commit_confirm(context, *options); };
}

} // namespace xpon::logctl
