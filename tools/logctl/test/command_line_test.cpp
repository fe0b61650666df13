#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logctl.hpp"

namespace xpon::logctl {
namespace {

TEST(CommandLine, ThatCannotBeUnderstoodHasStatusTwo) {
    std::pair<Logctl::Words, std::string> const cases[] = {
        {{}, "A command is required"},
        {{"bogus"}, "The following argument was not expected: bogus"},
        {{"--bogus"}, "The following argument was not expected: --bogus"},
        {{"set"}, "PATH=VALUE is required"},
        {{"set", "syslog.file.level"}, "PATH=VALUE: \"syslog.file.level\" is not PATH=VALUE"},
        {{"set", "syslog.file.level=info", "debug"}, "PATH=VALUE: \"debug\" is not PATH=VALUE"},
        {{"set", "--bogus", "syslog.file.level=info"}, "The following argument was not expected: --bogus"},
        {{"reset"}, "PATH is required"},
        {{"show", "--database"}, "--database: 1 required FOLDER missing"},
    };
    Logctl const logctl;
    for (auto const& [words, reason] : cases) {
        auto const outcome = logctl.run(words);
        EXPECT_EQ(
            outcome,
            (Outcome{2, "", fmt::format("logctl: {}\nRun with --help for more information.\n", reason)}));
    }
}

TEST(CommandLine, HelpAndVersionArePrinted) {
    Logctl const logctl;
    EXPECT_EQ(logctl.run({"--version"}), (Outcome{0, "logctl " LOGCTL_VERSION "\n", ""}));
    EXPECT_EQ(logctl.run({"--help"}), (Outcome{0, text(R"(
Shows and changes the board's log settings, whether the daemon runs or not.
Usage: logctl [OPTIONS] [SUBCOMMAND]

Options:
  -h,--help                   Print this help message and exit
  --version                   Display program version information and exit
  --database FOLDER           Where the configuration database is [/var/lib/xpon/cfgdb]

Subcommands:
  show                        Show settings: path, value, default, where it is stored
  set                         Change settings: all of them at once, or none
  reset                       Put settings back to their defaults: all at once, or none
  apply                       Have the daemon write, reload and tell again, without any change in the settings
  modules                     Show the modules: value, stem, files, subjects, levels
  preview                     Show the text that the daemon would write, whether it runs or not
  status                      Show for each output what is wanted, written and running; status 0 if all is in step
  probe                       Log a message of each severity, and say where each arrived; status 0 if it is as the settings say
  check                       Check every stored setting, and whether a private syslog-ng starts with the generated text
  history                     Show who changed what, the newest last
  compare                     Show how the settings differ from those after a transaction, in a file, or the defaults
  rollback                    Undo everything after a transaction, in a new one; prints the changes first
  commit-confirm              Change settings now, and undo it by itself unless confirmed in time
  trials                      Show the changes that end by themselves, with the time that is left
  confirm                     Make a trial's change permanent
  abort                       End a trial now, and put back what it has changed
  extend                      Let a trial end later
  export                      Print the whole configuration as JSON: every setting that is not at its default
  import                      Make the configuration equal to a file from export: all at once, or nothing
  backup                      Copy the whole database, history included, to one file
  restore                     Put a copy back in the database: all at once, or nothing; a running daemon follows
  watch                       Show changes and the message bus' notifications and answers as they happen

)"),
                                               ""}));
    for (auto const* command :
         {"show", "set", "reset", "apply", "modules", "preview", "status", "probe", "check", "history", "rollback",
          "commit-confirm", "trials", "compare", "confirm", "abort", "extend", "export", "import", "watch"}) {
        auto const outcome = logctl.run({command, "--help"});
        EXPECT_EQ(outcome.status, 0);
        EXPECT_THAT(outcome.out, testing::HasSubstr(fmt::format("Usage: logctl {} [OPTIONS]", command)));
        EXPECT_EQ(outcome.err, "");
    }
}

TEST(CommandLine, TheDatabasesFolderMayStandBehindTheCommand) {
    Logctl const logctl;
    auto const folder = logctl.database.string();
    EXPECT_EQ(logctl.run({"set", "syslog.rsh.level=debug", "--database", folder}), (Outcome{0, "", ""}));
    EXPECT_EQ(logctl.run({"show", "syslog.rsh", "--database", folder}), logctl({"show", "syslog.rsh"}));
}

} // namespace
} // namespace xpon::logctl
