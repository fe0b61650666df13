#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "golden_show.hpp"
#include "logctl.hpp"

namespace xpon::logctl {
namespace {

class Show : public testing::Test {
  protected:
    Show() { EXPECT_EQ(logctl({"reset", "*"}), silence); } // makes the database

    void set(std::string const& assignment) const { EXPECT_EQ(logctl({"set", assignment}), silence); }

    void expect(Logctl::Words const& words, std::string_view expected) const {
        EXPECT_EQ(logctl(words), (Outcome{0, text(expected), ""}));
    }

    Logctl logctl;
};

TEST_F(Show, WithoutAPathPrintsEverySettingButTheOntLevelsAtTheDefault) {
    expect({"show"}, show_defaults);
    expect({"show", "*"}, show_defaults);
}

TEST_F(Show, SaysWhereAValueIsStored) {
    set("syslog.remote.2.address=192.168.100.254");
    set("syslog.remote.level=5");
    expect({"show", "syslog.remote", "module.logconfig.SELF"}, R"(
PATH                     VALUE            DEFAULT  STORED
syslog.remote.1.address  0.0.0.0          0.0.0.0  default
syslog.remote.1.port     514              514      default
syslog.remote.2.address  192.168.100.254  0.0.0.0  database
syslog.remote.2.port     514              514      default
syslog.remote.3.address  0.0.0.0          0.0.0.0  default
syslog.remote.3.port     514              514      default
syslog.remote.level      debug            notice   database
module.logconfig.SELF    debug            debug    built-in
)");
}

TEST_F(Show, PrintsEachSettingOnceInItsPlaceHoweverManyPathsNameIt) {
    expect({"show", "module.arp.TX", "syslog.rsh.level", "module.arp.*"}, R"(
PATH              VALUE   DEFAULT  STORED
syslog.rsh.level  notice  notice   default
module.arp.SELF   notice  notice   default
module.arp.RX     notice  notice   default
module.arp.TX     notice  notice   default
module.arp.PROXY  notice  notice   default
)");
}

TEST_F(Show, OntLevelsAppearWhereTheyDifferOrAreAskedFor) {
    set("module.fsm_pon.ont.3.2=debug");
    auto const everything = logctl({"show", "module.fsm_pon.*"});
    EXPECT_THAT(everything.out,
                testing::EndsWith(
                    "module.fsm_pon.port.16  notice  notice   default\n"
                    "module.fsm_pon.ont.3.2  debug   notice   database\n"
                    "4095 ONT levels are at the default; see them with: logctl show module.fsm_pon.ont\n"));
    expect({"show", "module.fsm_pon.ont.3.1-3"}, R"(
PATH                    VALUE   DEFAULT  STORED
module.fsm_pon.ont.3.1  notice  notice   default
module.fsm_pon.ont.3.2  debug   notice   database
module.fsm_pon.ont.3.3  notice  notice   default
)");
    auto const all = logctl({"show", "module.fsm_pon.ont"});
    EXPECT_EQ(std::count(all.out.begin(), all.out.end(), '\n'), 4097);
}

TEST_F(Show, PrintsJson) {
    set("syslog.file.size=65536");
    expect({"show", "--json", "syslog.file", "module.logconfig.IPC"}, R"(
[
  {
    "path": "syslog.file.path",
    "value": "/var/log/",
    "default": "/var/log/",
    "stored": "default",
    "allowed": true
  },
  {
    "path": "syslog.file.size",
    "value": 65536,
    "default": 1048576,
    "stored": "database",
    "allowed": true
  },
  {
    "path": "syslog.file.level",
    "value": "info",
    "default": "info",
    "stored": "default",
    "allowed": true
  },
  {
    "path": "module.logconfig.IPC",
    "value": "debug",
    "default": "debug",
    "stored": "built-in",
    "allowed": true
  }
]
)");
}

TEST_F(Show, AStoredValueThatIsNotAllowedIsMarkedAndCannotReachTheTerminal) {
    logctl.sql(
        "INSERT INTO setting VALUES('syslog.file.path', '/a' || char(27) || '[2J/'), ('syslog.file.level', "
        "9)");
    expect({"show", "syslog.file"}, R"(
PATH               VALUE                       DEFAULT    STORED
syslog.file.path   "/a\x1b[2J/" (not allowed)  /var/log/  database
syslog.file.size   1048576                     1048576    default
syslog.file.level  9 (not allowed)             info       database
)");
    expect({"show", "syslog.file.path", "--json"}, R"(
[
  {
    "path": "syslog.file.path",
    "value": "\"/a\\x1b[2J/\"",
    "default": "/var/log/",
    "stored": "database",
    "allowed": false
  }
]
)");
}

TEST_F(Show, APathThatNamesNothingIsRefused) {
    EXPECT_EQ(logctl({"show", "syslog.file", "syslog.flie"}),
              refused("\"syslog.flie\": no such setting; nearest: syslog.file.*"));
}

TEST_F(Show, AnOutputThatCannotBeWrittenIsAFailure) {
    auto const outcome = logctl.run({"--database", logctl.database.string(), "show"}, "/dev/full");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "logctl: cannot write the output (No space left on device)\n");
}

TEST(ShowWithoutADatabase, IsAFailureAndMakesNone) {
    Logctl const logctl;
    EXPECT_EQ(logctl({"show"}),
              refused(logctl.file.string() + ": cannot be opened (No such file or directory)"));
    EXPECT_FALSE(std::filesystem::exists(logctl.database));
}

} // namespace
} // namespace xpon::logctl
