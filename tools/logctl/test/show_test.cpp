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
              refused("\"syslog.flie\": no such setting; did you mean \"syslog.file.*\"?"));
}

TEST_F(Show, AnOutputThatCannotBeWrittenIsAFailure) {
    auto const outcome = logctl.run({"--database", logctl.database.string(), "show"}, "/dev/full");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "logctl: cannot write the output (No space left on device)\n");
}

class ShowWhatDiffers : public testing::Test {
  protected:
    void SetUp() override {
        EXPECT_EQ(logctl({"set", "syslog.rsh.level=debug", "syslog.remote.1.address=192.0.2.1",
                          "syslog.remote.2.address=192.0.2.1", "syslog.remote.2.port=1514",
                          "module.snmp.*=error", "module.fsm_pon.ont.3.1-16,18=debug",
                          "module.fsm_pon.ont.16.*=critical", "module.fsm_pon.port.*=info"}),
                  (Outcome{0, "", ""}));
    }
    Logctl logctl;
};

TEST_F(ShowWhatDiffers, IsAllThatIsShownOnRequest) {
    EXPECT_EQ(logctl({"show", "--changed", "syslog", "module.fsm_pon.ont.3.17-19"}), (Outcome{0, text(R"(
PATH                     VALUE      DEFAULT  STORED
syslog.remote.1.address  192.0.2.1  0.0.0.0  database
syslog.remote.2.address  192.0.2.1  0.0.0.0  database
syslog.remote.2.port     1514       514      database
syslog.rsh.level         debug      notice   database
module.fsm_pon.ont.3.18  debug      notice   database
)"),
                                                                                              ""}));
}

TEST_F(ShowWhatDiffers, IsMadeAgainByItsCommands) {
    auto const commands = logctl({"show", "--commands"});
    EXPECT_EQ(commands, (Outcome{0, text(R"(
logctl reset '*'
logctl set \
    syslog.remote.1-2.address=192.0.2.1 \
    syslog.remote.2.port=1514 \
    syslog.rsh.level=debug \
    module.fsm_pon.port.1-16=info \
    module.fsm_pon.ont.3.1-16,18=debug \
    module.fsm_pon.ont.16.1-256=critical \
    'module.snmp.*=error'
)"),
                                 ""}));
    auto const exported = logctl({"export"});
    EXPECT_EQ(logctl({"set", "syslog.kernel.level=debug", "module.snmp.*=info"}), (Outcome{0, "", ""}));
    test::write_file(logctl.scratch / "script", "logctl() { " LOGCTL_PROGRAM " --database " +
                                                    logctl.database.string() + " \"$@\"; }\n" + commands.out);
    test::ChildProcess shell{{.argv = {"bash", "-e", logctl.scratch / "script"}}};
    EXPECT_EQ(shell.wait(), 0);
    EXPECT_EQ(logctl({"export"}), exported);
    EXPECT_EQ(logctl({"show", "--commands", "syslog.rsh"}),
              (Outcome{0, "logctl set \\\n    syslog.rsh.level=debug\n", ""}));
}

TEST_F(ShowWhatDiffers, OfTheOntsIsAPicture) {
    auto const picture = logctl({"show", "--map"});
    auto const row = [](std::string const& label, std::string const& levels) {
        return fmt::format("{:14}{}\n", label, levels);
    };
    std::string const same(64, '.');
    std::string expected = "c critical, e error, w warning, . notice, i info, d debug\n"
                           "port  1       all notice\nport  2       all notice\n" +
                           row("port  3    1", std::string(16, 'd') + ".d" + std::string(46, '.')) +
                           row("          65", same) + row("         129", same) + row("         193", same);
    for (int port = 4; port < 16; ++port) {
        expected += fmt::format("port {:2}       all notice\n", port);
    }
    EXPECT_EQ(picture, (Outcome{0, expected + "port 16       all critical\n", ""}));
    EXPECT_EQ(logctl({"show", "--map", "syslog"}).status, 2);
    EXPECT_EQ(logctl({"show", "--map", "--json"}).status, 2);
}

TEST_F(ShowWhatDiffers, OfTheFsmIsCounted) {
    EXPECT_EQ(logctl({"set", "module.fsm_pon.*=notice", "module.fsm_pon.OMCI=critical",
                      "module.fsm_pon.ont.3.1-16,18=debug", "module.fsm_pon.port.3=error"}),
              (Outcome{0, "", ""}));
    EXPECT_THAT(logctl({"modules", "fsm_pon"}).out, testing::EndsWith(text(R"(
olt      1 notice
onts     4079 notice, 17 debug
ports    1 error, 15 notice
)")));
    EXPECT_THAT(logctl({"modules"}).out,
                testing::HasSubstr(" critical error notice debug  SELF ONT PORT OMCI"));
    EXPECT_THAT(logctl({"modules", "--json", "fsm_pon"}).out, testing::EndsWith(text(R"(
    "olt": {
      "notice": 1
    },
    "onts": {
      "notice": 4079,
      "debug": 17
    },
    "ports": {
      "error": 1,
      "notice": 15
    }
  }
]
)")));
}

TEST(ShowWithoutADatabase, IsAFailureAndMakesNone) {
    Logctl const logctl;
    EXPECT_EQ(logctl({"show"}), refused(logctl.database.string() + ": no configuration database is there"));
    EXPECT_FALSE(std::filesystem::exists(logctl.database));
}

} // namespace
} // namespace xpon::logctl
