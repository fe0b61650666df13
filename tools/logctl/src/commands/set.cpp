#include <memory>

#include "commands/apply.hpp"

namespace xpon::logctl {

namespace {

struct Options : ApplyOptions {
    std::vector<std::string> assignments;
};

std::string check_assignment(std::string const& text) {
    return text.find('=') != std::string::npos ? "" : "\"" + text + "\" is not PATH=VALUE";
}

core::Result<int> set(Context const& context, Options const& options) {
    cfgdb::Transaction transaction;
    for (std::string_view const assignment : options.assignments) {
        auto const sign = assignment.find('=');
        OUTCOME_TRY(transaction.set(assignment.substr(0, sign), assignment.substr(sign + 1)));
    }
    OUTCOME_TRY(apply(transaction, context, options));
    return 0;
}

} // namespace

void add_set(CLI::App& program, Action& chosen) {
    auto* const command = program.add_subcommand("set", "Change settings: all of them at once, or none");
    auto const options = std::make_shared<Options>();
    command
        ->add_option(
            "PATH=VALUE", options->assignments,
            "Such as syslog.file.level=debug, module.snmp.*=warning or module.fsm_pon.ont.3.1-16=debug; of "
            "two values for one setting the later counts")
        ->required()
        ->type_name("")
        ->check(CLI::Validator{check_assignment, ""});
    add_apply_options(*command, *options);
    command->callback([options, &chosen] {
        chosen = [options](Context const& context) { return set(context, *options); };
    });
}

} // namespace xpon::logctl
