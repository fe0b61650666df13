#include "command_line.hpp"

#include <csignal>
#include <string_view>

#include <fmt/format.h>

#include "commands/command.hpp"
#include "output.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"

namespace xpon::logctl {

namespace {

constexpr int failed = 1;
constexpr int misused = 2;

} // namespace

int run(int argc, char** argv) {
    // Whoever starts logctl may ignore it, and the kernel then keeps no exit status of the programs it runs.
    std::signal(SIGCHLD, SIG_DFL);

    CLI::App program{"Shows and changes the board's log settings, whether the daemon runs or not.", "logctl"};
    program.set_version_flag("--version", "logctl " LOGCTL_VERSION);
    program.require_subcommand(0, 1);
    program.fallthrough(); // the global options may also stand behind the command
    program.failure_message([](CLI::App const*, CLI::Error const& error) {
        return fmt::format("logctl: {}\nRun with --help for more information.\n", error.what());
    });

    Context context{cfgdb::default_folder};
    program
        .add_option("--database", context.database,
                    fmt::format("Where the configuration database is [{}]", cfgdb::default_folder))
        ->type_name("FOLDER");
    Action chosen; // in the order of the help
    add_show(program, chosen);
    add_set(program, chosen);
    add_reset(program, chosen);
    add_modules(program, chosen);
    add_preview(program, chosen);
    add_status(program, chosen);
    add_check(program, chosen);
    add_history(program, chosen);
    add_rollback(program, chosen);
    add_commit_confirm(program, chosen);
    add_confirm(program, chosen);
    add_export(program, chosen);
    add_import(program, chosen);
    add_backup(program, chosen);
    add_restore(program, chosen);
    add_watch(program, chosen);

    // Not a command of the program's parser, which would take the words that are to be completed for its own.
    if (argc > 2 && argv[1] == std::string_view{"complete"} && argv[2] == std::string_view{"--"}) {
        complete(program, {argv + 3, argv + argc});
        return flush_output().has_value() ? 0 : failed;
    }

    try {
        program.parse(argc, argv);
        if (!chosen) {
            throw CLI::RequiredError{"A command"};
        }
    } catch (CLI::ParseError const& error) {
        return program.exit(error) == 0 ? 0 : misused;
    }
    auto const status = chosen(context);
    auto const written = flush_output();
    if (status.has_value() && written.has_value()) {
        return status.value();
    }
    tell(text_of(status.has_error() ? status.error() : written.error()));
    return failed;
}

} // namespace xpon::logctl
