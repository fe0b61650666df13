// The shell's completion, in a real bash, and the man page.

#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logctl.hpp"

namespace xpon::logctl {
namespace {

using testing::ElementsAre;

/// What bash would offer for this line.
std::vector<std::string> offered(std::string const& line) {
    constexpr char const* script = R"sh(
PATH=$1:$PATH
. "$2"
compopt() { echo "(no space)"; }
COMP_LINE=$3 COMP_POINT=${#3}
_logctl
printf '%s\n' "${COMPREPLY[@]}"
)sh";
    test::ScratchFolder const scratch;
    std::filesystem::create_symlink(LOGCTL_PROGRAM, scratch / "logctl");
    test::ChildProcess shell{{.argv = {"bash", "-c", script, "bash", scratch.path().string(),
                                       XPON_PACKAGING "/bash-completion/logctl", line},
                              .output = scratch / "out"}};
    EXPECT_EQ(shell.wait(), 0);
    std::istringstream out{test::read_file(scratch / "out")};
    std::vector<std::string> words;
    for (std::string word; std::getline(out, word);) {
        if (!word.empty()) {
            words.push_back(word);
        }
    }
    return words;
}

TEST(Completion, OffersCommandsAndOptions) {
    EXPECT_THAT(offered("logctl "),
                ElementsAre("abort", "apply", "backup", "check", "commit-confirm", "compare", "confirm",
                            "export", "extend", "help", "history", "import", "modules", "preview", "probe",
                            "reset", "restore", "rollback", "set", "show", "status", "trials", "watch"));
    EXPECT_THAT(offered("logctl re"), ElementsAre("reset", "restore"));
    EXPECT_THAT(offered("logctl watch --"), ElementsAre("--count", "--create", "--database", "--help",
                                                        "--json", "--timeout", "--version"));
    EXPECT_THAT(offered("logctl commit-confirm --d"), ElementsAre("--database", "--dry-run"));
}

TEST(Completion, OffersTheCommandsThatHelpExplains) {
    EXPECT_THAT(offered("logctl help e"), ElementsAre("export", "extend"));
}

TEST(Completion, OffersPathsComponentByComponent) {
    EXPECT_THAT(offered("logctl show "), ElementsAre("module.", "syslog."));
    EXPECT_THAT(offered("logctl show module.sn"), ElementsAre("module.snmp.", "module.snmpdconf."));
    EXPECT_THAT(offered("logctl reset module.sn"), ElementsAre("(no space)", "module.snmp."));
    EXPECT_THAT(offered("logctl show module.snmp.C"),
                ElementsAre("module.snmp.CFGDB", "module.snmp.CUSTOM_1LAYER"));
    EXPECT_THAT(offered("logctl history syslog.file.s"), ElementsAre("syslog.file.size"));
    EXPECT_THAT(offered("logctl set syslog.rsh."), ElementsAre("(no space)", "syslog.rsh.level="));
}

TEST(Completion, OffersLevelsBehindTheSign) {
    EXPECT_THAT(offered("logctl set syslog.rsh.level=debug module.snmp.*="),
                ElementsAre("critical", "debug", "error", "info", "notice", "warning"));
    EXPECT_THAT(offered("logctl commit-confirm 5 syslog.rsh.level=de"), ElementsAre("debug"));
    EXPECT_THAT(offered("logctl set syslog.file.size="), ElementsAre());
    EXPECT_THAT(offered("logctl set $(reboot)="), ElementsAre());
}

TEST(Completion, OffersTheTrialsOfTheDatabaseThatIsNamed) {
    Logctl const logctl;
    EXPECT_EQ(logctl({"commit-confirm", "1", "syslog.rsh.level=debug"}).status, 0);
    EXPECT_THAT(offered("logctl --database " + logctl.database.string() + " abort "), ElementsAre("1"));
    EXPECT_EQ(logctl({"abort"}).status, 0);
    EXPECT_THAT(offered("logctl --database " + logctl.database.string() + " extend "), ElementsAre());
}

TEST(Completion, OffersModulesAndOutputs) {
    EXPECT_THAT(offered("logctl modules snmp"), ElementsAre("snmp", "snmpdconf"));
    EXPECT_THAT(offered("logctl preview S"),
                ElementsAre("SESSIONMGR.conf", "SLOT-MGR.conf", "SNMP.conf", "SNMPD-CONFIG.conf",
                            "SWITCH.conf", "SYSTEM-MGR.conf"));
}

std::set<std::string> options_in(std::string const& text, std::string const& pattern) {
    std::regex const option{pattern};
    std::set<std::string> found;
    for (std::sregex_iterator at{text.begin(), text.end(), option}, end; at != end; ++at) {
        found.insert(std::regex_replace(at->str(), std::regex{R"(\\)"}, ""));
    }
    return found;
}

TEST(ManPage, HasEveryCommandWithItsOptions) {
    auto const page = test::read_file(XPON_PACKAGING "/man/logctl.1");
    Logctl const logctl;
    for (auto const& command : offered("logctl ")) {
        std::string heading = ".SS " + std::regex_replace(command, std::regex{"-"}, "\\-");
        auto const begin = page.find(heading + " ") != std::string::npos ? page.find(heading + " ")
                                                                         : page.find(heading + "\n");
        ASSERT_NE(begin, std::string::npos) << heading;
        auto const section = page.substr(begin, page.find("\n.S", begin + 1) - begin);
        auto wanted = options_in(logctl.run({command, "--help"}).out, "--[a-z][a-z-]*");
        wanted.erase("--help");
        EXPECT_EQ(options_in(section, R"(\\-\\-[a-z][a-z\\-]*)"), wanted) << command;
    }
    for (auto const* option : {"\\-\\-help", "\\-\\-version", "\\-\\-create", "\\-\\-database"}) {
        EXPECT_THAT(page, testing::HasSubstr(option));
    }
}

} // namespace
} // namespace xpon::logctl
