#include <memory>

#include "commands/change.hpp"

namespace xpon::logctl {

namespace {

struct Options : ChangeOptions {
    std::vector<std::string> assignments;
};

core::Result<int> set(Context const& context, Options const& options) {
    cfgdb::Transaction transaction;
    OUTCOME_TRY(add_assignments(options.assignments, transaction));
    return change(transaction, context, options);
}

} // namespace

Action set_command(Arguments& arguments) {
    auto const options = std::make_shared<Options>();
    arguments.add({.name = "PATH=VALUE",
                   .help = "Such as syslog.file.level=debug, module.snmp.*=warning or "
                           "module.fsm_pon.ont.3.1-16=debug; the last value given for a setting wins",
                   .required = true},
                  options->assignments);
    arguments.verify([options] { return complaint_about(options->assignments); });
    add_change_options(arguments, *options);
    return [options](Context const& context) { return set(context, *options); };
}

} // namespace xpon::logctl
