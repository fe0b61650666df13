#include <memory>
#include <optional>

#include "commands/change.hpp"
#include "trials/duration.hpp"
#include "trials/start.hpp"

namespace xpon::logctl {

namespace {

struct Options : ChangeOptions {
    std::vector<std::string> assignments;
    std::optional<std::string> time; ///< after which they are put back
};

core::Result<int> set(Context const& context, Options const& options) {
    cfgdb::Transaction transaction;
    OUTCOME_TRY(add_assignments(options.assignments, transaction));
    if (!options.time) {
        return change(std::move(transaction), "set", context, options);
    }
    OUTCOME_TRY(seconds, seconds_in("--for", *options.time));
    return start_trial(std::move(transaction), {.seconds = seconds, .temporary = true}, context, options);
}

} // namespace

Action set_command(Arguments& arguments) {
    auto const options = std::make_shared<Options>();
    arguments.add({.name = "PATH=VALUE",
                   .help = "Settings and values, such as syslog.file.level=debug, module.snmp.*=warning or "
                           "module.fsm_pon.ont.3.1-16=debug; the last value given for a setting wins",
                   .required = true},
                  options->assignments);
    arguments.verify([options] { return complaint_about(options->assignments); });
    arguments.add({.name = "--for",
                   .help = "Put the settings back by itself after this time, such as 90s, 30m, 2h or 7d",
                   .type = "TIME"},
                  options->time);
    add_change_options(arguments, *options);
    return [options](Context const& context) { return set(context, *options); };
}

} // namespace xpon::logctl
