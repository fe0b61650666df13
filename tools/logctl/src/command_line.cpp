#include "command_line.hpp"

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
    Action chosen;
    add_show(program, chosen);
    add_set(program, chosen);
    add_reset(program, chosen);
    add_watch(program, chosen);

    try {
        program.parse(argc, argv);
        if (!chosen) {
            throw CLI::RequiredError{"A command"};
        }
    } catch (CLI::ParseError const& error) {
        return program.exit(error) == 0 ? 0 : misused;
    }
    auto done = chosen(context);
    if (done.has_value()) {
        done = flush_output();
    }
    if (done.has_error()) {
        auto const& info = done.error().info;
        tell(info ? info->text() : core::to_string(done.error().error));
        return failed;
    }
    return 0;
}

} // namespace xpon::logctl
