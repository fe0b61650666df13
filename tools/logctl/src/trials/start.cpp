#include "trials/start.hpp"

#include <fmt/format.h>

#include "core/failure.hpp"
#include "output.hpp"
#include "trials/alarm.hpp"
#include "trials/duration.hpp"
#include "trials/overdue.hpp"

namespace xpon::logctl {

core::Result<int> start_trial(cfgdb::Transaction transaction, NewTrial const& wanted, Context const& context,
                              ChangeOptions const& options) {
    auto const* const how = wanted.temporary ? "temporary" : "trial";
    if (options.dry_run) {
        return change(std::move(transaction), how, context, options);
    }
    OUTCOME_TRY(describe(transaction, how, options));
    auto const end = cfgdb::BootInstant::in(wanted.seconds);
    Alarm alarm{context};
    OUTCOME_TRY(alarm.set(end, wanted.seconds));
    auto const started =
        cfgdb::commit_trial(transaction, {end, wanted.temporary, alarm.timer()}, context.database);
    if (started.has_error() || started.value().changes.empty()) {
        alarm.cancel();
    }
    OUTCOME_TRY(trial, started);
    alarm.committed();
    auto const& [number, changes] = trial;
    if (!changes.empty() && end.over()) { // whatever was to end it may have come before
        OUTCOME_TRY(end_overdue_trials(context));
        return core::fail(core::Error::InvalidState,
                          "the time was over before the change was made, so it is undone");
    }
    tell_changes(changes, options);
    auto const left = duration_text(end.left());
    tell(changes.empty() ? fmt::format("nothing is changed, so there is nothing to {}",
                                       wanted.temporary ? "put back" : "confirm")
         : wanted.temporary
             ? fmt::format("trial {0}: put back in {1}; before that: logctl abort {0}", number, left)
             : fmt::format("trial {0}: undone in {1} unless you confirm it: logctl confirm {0}", number,
                           left));
    return finish(transaction.fields(), !changes.empty(), context, options);
}

} // namespace xpon::logctl
