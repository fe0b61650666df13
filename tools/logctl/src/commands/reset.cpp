#include <memory>

#include "commands/apply.hpp"

namespace xpon::logctl {

namespace {

struct Options : ApplyOptions {
    std::vector<std::string> patterns;
};

core::Result<int> reset(Context const& context, Options const& options) {
    cfgdb::Transaction transaction;
    for (auto const& pattern : options.patterns) {
        OUTCOME_TRY(transaction.reset(pattern));
    }
    OUTCOME_TRY(apply(transaction, context, options));
    return 0;
}

} // namespace

void add_reset(CLI::App& program, Action& chosen) {
    auto* const command =
        program.add_subcommand("reset", "Put settings back to their defaults: all at once, or none");
    auto const options = std::make_shared<Options>();
    command
        ->add_option("PATH", options->patterns,
                     "Such as syslog.file.level, module.snmp.* or * for everything")
        ->required()
        ->type_name("");
    add_apply_options(*command, *options);
    command->callback([options, &chosen] {
        chosen = [options](Context const& context) { return reset(context, *options); };
    });
}

} // namespace xpon::logctl
