// trials, and what ends or prolongs one: confirm, abort, extend.

#include <algorithm>
#include <memory>
#include <optional>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands/command.hpp"
#include "core/failure.hpp"
#include "folded.hpp"
#include "output.hpp"
#include "table.hpp"
#include "trials/alarm.hpp"
#include "trials/duration.hpp"
#include "trials/overdue.hpp"
#include "xpon/cfgdb/trial.hpp"

namespace xpon::logctl {

namespace {

using cfgdb::Trial;
using core::Error;
using core::fail;
using nlohmann::ordered_json;

std::string to_table(std::vector<Trial> const& trials) {
    std::vector<std::string> before;
    for (auto const& trial : trials) {
        std::vector<Said> all;
        all.reserve(trial.settings.size());
        for (auto const& [path, value] : trial.settings) {
            all.push_back({path, value});
        }
        before.emplace_back();
        for (auto const& [path, value] : folded(all)) {
            before.back() += fmt::format("{}{}={}", before.back().empty() ? "" : " ", path, value);
        }
    }
    return aligned(
        [&](AddLine const& add) {
            add({"NUMBER", "USER", "LEFT", "UNLESS", "PUTS BACK"});
            for (std::size_t i = 0; i < trials.size(); ++i) {
                auto const& [number, author, terms, _] = trials[i];
                add({std::to_string(number), author, duration_text(terms.end.left()),
                     terms.temporary ? "aborted" : "confirmed", before[i]});
            }
        },
        screen(), LastColumn::WrappedUnderHeading);
}

std::string to_json(std::vector<Trial> const& trials) {
    auto all = ordered_json::array();
    for (auto const& [number, author, terms, settings] : trials) {
        auto before = ordered_json::object();
        for (auto const& [path, value] : settings) {
            before[path] = value;
        }
        all.push_back({{"number", number},
                       {"author", author},
                       {"seconds_left", terms.end.left()},
                       {"temporary", terms.temporary},
                       {"puts_back", before}});
    }
    return all.dump(2) + "\n";
}

core::Result<int> trials(Context const& context, bool json) {
    OUTCOME_TRY(pending, cfgdb::pending_trials(context.database));
    print(json ? to_json(pending) : pending.empty() ? "no trial is pending\n" : to_table(pending));
    return 0;
}

/// The trial that is meant if none is named: the only one that waits for its confirmation.
core::Result<std::int64_t> number_of(std::optional<std::int64_t> given, std::string_view command,
                                     Context const& context) {
    if (given) {
        return *given;
    }
    OUTCOME_TRY(pending, cfgdb::pending_trials(context.database));
    std::erase_if(pending, [](Trial const& trial) { return trial.terms.temporary; });
    if (pending.empty()) {
        return fail(Error::Empty, "no trial waits for a confirmation; see: logctl trials");
    }
    if (pending.size() > 1) {
        std::vector<std::int64_t> numbers;
        std::ranges::transform(pending, std::back_inserter(numbers), &Trial::number);
        return fail(Error::InvalidInputArg, "trials {} wait for a confirmation; name one: logctl {} {}",
                    fmt::join(numbers, ", "), command, numbers.front());
    }
    return pending.front().number;
}

core::Result<int> confirm(Context const& context, std::optional<std::int64_t> given) {
    OUTCOME_TRY(number, number_of(given, "confirm", context));
    OUTCOME_TRY(trial, cfgdb::confirm_trial(number, context.database));
    stop_timer(trial.terms.timer);
    return 0;
}

core::Result<int> abort(Context const& context, std::optional<std::int64_t> given) {
    OUTCOME_TRY(number, number_of(given, "abort", context));
    OUTCOME_TRY(ended, cfgdb::abort_trial(number, context.database));
    stop_timer(ended.trial.terms.timer);
    print(text_of(ended));
    return 0;
}

struct Extension {
    std::int64_t number = 0;
    std::string time;
};

core::Result<int> extend(Context const& context, Extension const& wanted) {
    OUTCOME_TRY(more, seconds_in("TIME", wanted.time));
    OUTCOME_TRY(pending, cfgdb::pending_trials(context.database));
    auto const trial = std::ranges::find(pending, wanted.number, &Trial::number);
    auto const left = trial == pending.end() ? 0 : trial->terms.end.left();
    if (left + more > longest_trial) {
        return fail(Error::InvalidInputArg, "trial {} would end in {}; a trial lasts at most {}",
                    wanted.number, duration_text(left + more), duration_text(longest_trial));
    }
    auto const end = cfgdb::BootInstant::in(left + more);
    Alarm alarm{context};
    OUTCOME_TRY(alarm.set(end, left + more));
    auto const extended = cfgdb::extend_trial(wanted.number, end, alarm.timer(), context.database);
    if (extended.has_error()) {
        alarm.cancel();
    }
    OUTCOME_TRY(before, extended);
    alarm.committed();
    stop_timer(before.terms.timer);
    tell(fmt::format("trial {}: ends in {}", wanted.number, duration_text(end.left())));
    return 0;
}

/// A command that may name a trial.
Action trial_command(Arguments& arguments,
                     core::Result<int> (*act)(Context const&, std::optional<std::int64_t>)) {
    auto const number = std::make_shared<std::optional<std::int64_t>>();
    arguments.add({"NUMBER", "The number of the trial; not needed while only one waits for its confirmation"},
                  *number);
    return [number, act](Context const& context) { return act(context, *number); };
}

} // namespace

Action trials_command(Arguments& arguments) {
    auto const json = std::make_shared<bool>(false);
    arguments.add({"--json", "Print an array of JSON objects"}, *json);
    return [json](Context const& context) { return trials(context, *json); };
}

Action confirm_command(Arguments& arguments) {
    return trial_command(arguments, confirm);
}

Action abort_command(Arguments& arguments) {
    return trial_command(arguments, abort);
}

Action extend_command(Arguments& arguments) {
    auto const wanted = std::make_shared<Extension>();
    arguments.add({.name = "NUMBER", .help = "The number of the trial", .required = true}, wanted->number);
    arguments.add(
        {.name = "TIME", .help = "How much later it ends, such as 90s, 30m, 2h or 7d", .required = true},
        wanted->time);
    return [wanted](Context const& context) { return extend(context, *wanted); };
}

} // namespace xpon::logctl
