#include <memory>

#include "commands/change.hpp"

namespace xpon::logctl {

namespace {

struct Options : ChangeOptions {
    std::vector<std::string> patterns;
};

core::Result<int> reset(Context const& context, Options const& options) {
    cfgdb::Transaction transaction;
    for (auto const& pattern : options.patterns) {
        OUTCOME_TRY(transaction.reset(pattern));
    }
    return change(std::move(transaction), "reset", context, options);
}

} // namespace

Action reset_command(Arguments& arguments) {
    auto const options = std::make_shared<Options>();
    arguments.add({.name = "PATH",
                   .help = "Such as syslog.file.level, module.snmp.* or * for everything",
                   .required = true},
                  options->patterns);
    add_change_options(arguments, *options);
    return [options](Context const& context) { return reset(context, *options); };
}

} // namespace xpon::logctl
