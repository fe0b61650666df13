#include <sstream>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logctl.hpp"

namespace xpon::logctl {
namespace {

TEST(CommandLine, AnOptionMayBeRepeatedAndItsLastValueCounts) {
    Logctl const logctl;
    EXPECT_EQ(logctl({"set", "-m", "one", "syslog.rsh.level=debug", "-v", "-m", "two", "-v"}),
              (Outcome{0, "syslog.rsh.level: notice -> debug\n", ""}));
    EXPECT_THAT(logctl({"history"}).out, testing::HasSubstr("(two)"));
}

TEST(CommandLine, HelpAndVersionArePrinted) {
    Logctl const logctl;
    EXPECT_EQ(logctl.run({"--version"}), (Outcome{0, "logctl " LOGCTL_VERSION "\n", ""}));
    auto const help = text(R"(
Show and change the board's log settings, whether the daemon runs or not.
Usage: logctl [OPTIONS] COMMAND

Options:
  -h,--help                   Print this help message and exit
  --version                   Display program version information and exit
  --database FOLDER           Folder of the configuration database
                              [/var/lib/xpon/cfgdb]
  --create                    Let a command that writes make the database of
                              another folder

Commands:
  show                        Show settings: path, value, default and where the
                              value is stored
  set                         Change settings, all or none
  reset                       Set settings to their defaults, all or none
  apply                       Have the daemon write, reload and notify again,
                              without changing a setting
  modules                     Show the modules: value, stem, files, subjects,
                              levels
  preview                     Show what the daemon would write, whether it runs
                              or not
  status                      Show whether each output has what the settings ask
                              for; exit status 0 if all do
  probe                       Log a message of each severity and show where it
                              arrives; exit status 0 if all is as set
  check                       Check every stored setting, and whether a private
                              syslog-ng starts with the generated text
  history                     Show who changed what, newest last
  compare                     Show how the settings differ from those after a
                              transaction, from a file or the defaults
  rollback                    Undo everything after a transaction, in a new one;
                              print the changes first
  commit-confirm              Change settings, and undo the change unless it is
                              confirmed in time
  trials                      Show the changes that end by themselves, with the
                              time that is left
  confirm                     Make the change of a trial permanent
  abort                       End a trial now: put back what it has changed
  extend                      Let a trial end later
  export                      Print every setting that is not at its default, as
                              JSON
  import                      Make the configuration equal to a file from
                              export, all or nothing
  backup                      Copy the whole database, history included, to one
                              file
  restore                     Put back a copy made by backup, all or nothing; a
                              running daemon follows
  watch                       Show changes, and the notifications and answers of
                              modules, as they happen
  help                        Show this help, or that of a command

)");
    EXPECT_EQ(logctl.run({"--help"}), (Outcome{0, help, ""}));
    constexpr std::string_view heading = "\nCommands:\n";
    std::istringstream commands{help.substr(help.find(heading) + heading.size())};
    for (std::string line; std::getline(commands, line);) {
        if (line.size() < 3 || line[2] == ' ') { // the rest of a description
            continue;
        }
        auto const command = line.substr(2, line.find(' ', 2) - 2);
        auto const outcome = logctl.run({command, "--help"});
        EXPECT_EQ(outcome.status, 0);
        EXPECT_THAT(outcome.out, testing::HasSubstr(fmt::format("Usage: logctl {} [OPTIONS]", command)));
        EXPECT_EQ(outcome.err, "");
        EXPECT_EQ(logctl.run({"help", command}), outcome);
    }
    EXPECT_EQ(logctl.run({"help"}), (Outcome{0, help, ""}));
}

TEST(CommandLine, TheDatabaseOptionMayFollowTheCommand) {
    Logctl const logctl;
    auto const folder = logctl.database.string();
    EXPECT_EQ(logctl.run({"set", "syslog.rsh.level=debug", "--database", folder, "--create"}), silence);
    EXPECT_EQ(logctl.run({"show", "syslog.rsh", "--database", folder}), logctl({"show", "syslog.rsh"}));
}

TEST(CommandLine, ADatabaseElsewhereIsMadeOnRequestOnly) {
    Logctl const logctl;
    auto const folder = logctl.database.string();
    auto const missing = folder + ": no configuration database is there";
    test::write_file(logctl.scratch / "settings", R"({"version": 1, "settings": {}})");
    std::vector<Logctl::Words> const writers = {{"set", "syslog.rsh.level=debug"},
                                                {"reset", "*"},
                                                {"apply"},
                                                {"import", logctl.scratch / "settings"},
                                                {"restore", logctl.scratch / "x"},
                                                {"commit-confirm", "1", "syslog.rsh.level=debug"},
                                                {"set", "--for=1s", "syslog.rsh.level=debug"}};
    for (auto words : writers) {
        words.insert(words.end(), {"--database", folder + "/"});
        EXPECT_EQ(logctl.run(words), refused(missing + "; to make one, add --create")) << words.front();
    }
    for (auto const* command : {"show", "modules", "status", "check", "history", "compare", "trials",
                                "confirm", "abort", "export", "watch"}) {
        EXPECT_EQ(logctl.run({"--database", folder, command}), refused(missing)) << command;
        EXPECT_EQ(logctl.run({"--database", folder, "--create", command}), refused(missing)) << command;
    }
    EXPECT_EQ(logctl.run({"--database", folder, "help"}), logctl.run({"--help"}));
    EXPECT_FALSE(std::filesystem::exists(folder));
    EXPECT_EQ(logctl.run({"--database", folder, "--create", "set", "syslog.rsh.level=debug"}), silence);
    EXPECT_EQ(logctl.run({"--database", folder, "set", "syslog.rsh.level=info"}), silence);
    EXPECT_THAT(logctl.stored(), testing::ElementsAre("syslog.rsh.level=info"));
}

} // namespace
} // namespace xpon::logctl
