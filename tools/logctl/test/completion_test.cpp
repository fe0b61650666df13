// The shell's completion, in a real bash, and the man page.

#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "json_page.hpp"
#include "logctl.hpp"

namespace xpon::logctl {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

/// What bash would offer for this line.
std::vector<std::string> offered(std::string const& line, std::filesystem::path const& folder = "/") {
    constexpr char const* script = R"sh(
PATH=$1:$PATH
. "$2"
cd "$4" || exit
compopt() { [[ $2 != nospace ]] || echo "(no space)"; }
COMP_LINE=$3 COMP_POINT=${#3}
_logctl
printf '%s\n' "${COMPREPLY[@]}"
)sh";
    test::ScratchFolder const scratch;
    std::filesystem::create_symlink(LOGCTL_PROGRAM, scratch / "logctl");
    test::ChildProcess shell{{.argv = {"bash", "-c", script, "bash", scratch.path().string(),
                                       XPON_PACKAGING "/bash-completion/logctl", line, folder},
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
    EXPECT_THAT(offered("logctl set --comment status --verb"), ElementsAre("--verbose"));
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
    EXPECT_THAT(offered("logctl set $(reboot)="), ElementsAre());
}

TEST(Completion, OffersTheDefaultOfWhatIsNoLevel) {
    EXPECT_THAT(offered("logctl set syslog.file.size="), ElementsAre("1048576"));
    EXPECT_THAT(offered("logctl set syslog.file.size=2"), ElementsAre());
    EXPECT_THAT(offered("logctl set syslog.remote.2.port="), ElementsAre("514"));
    EXPECT_THAT(offered("logctl set syslog.remote.2.address=0"), ElementsAre("0.0.0.0"));
}

TEST(Completion, OffersNothingForTheValueOfAnOption) {
    for (auto const* const line : {"logctl set --for ", "logctl set -m s", "logctl history --limit ",
                                   "logctl set --comment=s", "logctl watch --timeout "}) {
        EXPECT_THAT(offered(line), ElementsAre()) << line;
    }
    EXPECT_THAT(offered("logctl set --for 30m -m why sys"), ElementsAre("(no space)", "syslog."));
    EXPECT_THAT(offered("logctl set --wait sys"), ElementsAre("(no space)", "syslog."));
}

TEST(Completion, OffersNothingWhereNothingMoreIsTaken) {
    for (auto const* const line :
         {"logctl status ", "logctl export ", "logctl modules snmp ", "logctl extend 1 ",
          "logctl commit-confirm ", "logctl import settings.json "}) {
        EXPECT_THAT(offered(line), ElementsAre()) << line;
    }
    EXPECT_THAT(offered("logctl commit-confirm 5 sys"), ElementsAre("(no space)", "syslog."));
}

TEST(Completion, OffersFilesAndFolders) {
    test::ScratchFolder const scratch;
    test::write_file(scratch / "a b.json", "");
    test::write_file(scratch / "c.json", "");
    std::filesystem::create_directory(scratch / "kept");
    for (std::string const command : {"import", "backup", "restore"}) {
        EXPECT_THAT(offered("logctl " + command + " ", scratch.path()),
                    UnorderedElementsAre("a b.json", "c.json", "kept"));
    }
    EXPECT_THAT(offered("logctl import --merge 'a b", scratch.path()), ElementsAre("a b.json"));
    EXPECT_THAT(offered("logctl import a\\ ", scratch.path()), ElementsAre("a b.json"));
    EXPECT_THAT(offered("logctl --database k", scratch.path()), ElementsAre("kept"));
    EXPECT_THAT(offered("logctl show --database=k", scratch.path()), ElementsAre("kept/"));
    auto const folder = scratch.path().string();
    EXPECT_THAT(offered("logctl set syslog.file.path=" + folder + "/"), ElementsAre(folder + "/kept/"));
    EXPECT_THAT(offered("logctl set 'syslog.file.path=" + folder + "/k"),
                ElementsAre("syslog.file.path=" + folder + "/kept/"));
}

TEST(Completion, KnowsQuotationMarks) {
    EXPECT_THAT(offered("logctl set 'module.snmp.*=de"), ElementsAre("module.snmp.*=debug"));
    EXPECT_THAT(offered("logctl set -m 'for \\' \"module.snmp.*=de"), ElementsAre("module.snmp.*=debug"));
    EXPECT_THAT(offered("logctl set 'module.snmp.*'=de"), ElementsAre("debug"));
    EXPECT_THAT(offered("logctl set module.snmp.\\*=de"), ElementsAre("debug"));
    EXPECT_THAT(offered("logctl show module.'snm"), ElementsAre("snmp.", "snmpdconf."));
    EXPECT_THAT(offered("logctl 'sta"), ElementsAre("status"));
    EXPECT_THAT(offered("logctl show \"a 'b\" sys"), ElementsAre("(no space)", "syslog."));
    // A closing quotation mark would follow the only candidate, so it is not a group.
    EXPECT_THAT(offered("logctl set 'syslog.rs"),
                ElementsAre("syslog.rsh.level=critical", "syslog.rsh.level=debug", "syslog.rsh.level=error",
                            "syslog.rsh.level=info", "syslog.rsh.level=notice", "syslog.rsh.level=warning"));
}

TEST(Completion, OffersTransactions) {
    Logctl const logctl;
    EXPECT_EQ(logctl({"set", "syslog.rsh.level=debug"}), silence);
    EXPECT_EQ(logctl({"set", "syslog.rsh.level=info"}), silence);
    auto const program = "logctl --database " + logctl.database.string();
    EXPECT_THAT(offered(program + " rollback "), ElementsAre("1", "2"));
    test::ScratchFolder const scratch;
    test::write_file(scratch / "kept.json", "");
    EXPECT_THAT(offered(program + " compare ", scratch.path()), UnorderedElementsAre("1", "2", "kept.json"));
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

TEST(ManPage, ExplainsEveryKeyOfTheJson) {
    Logctl const logctl;
    expect_explained("set", logctl({"set", "--json", "module.snmp.*=debug"}).out);
    EXPECT_EQ(logctl({"commit-confirm", "1", "syslog.rsh.level=debug"}).status, 0);
    expect_explained("show", logctl({"show", "--json", "syslog"}).out);
    expect_explained("modules", logctl({"modules", "--json"}).out);
    expect_explained("history", logctl({"history", "--json"}).out);
    expect_explained("compare", logctl({"compare", "--json"}).out);
    expect_explained("trials", logctl({"trials", "--json"}).out);
    EXPECT_EQ(logctl({"abort"}).status, 0);
    expect_explained("export", logctl({"export"}).out);
    for (auto const& command : offered("logctl ")) {
        if (logctl.run({command, "--help"}).out.find("--json") != std::string::npos) {
            EXPECT_THAT(words_in_json_page(command), testing::Not(testing::IsEmpty())) << command;
        }
    }
}

} // namespace
} // namespace xpon::logctl
