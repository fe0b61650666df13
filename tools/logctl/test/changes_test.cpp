// set and reset.

#include <unistd.h>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logctl.hpp"
#include "xpon/cfgdb/transaction.hpp"

namespace xpon::logctl {
namespace {

constexpr char const* session_manager_note = "logctl: note: a level of the session manager takes effect when "
                                             "the daemon is next restarted, not before\n";

class Changes : public testing::Test {
  protected:
    Logctl logctl;
};

TEST_F(Changes, AreMadeSilently) {
    EXPECT_EQ(
        logctl({"set", "syslog.file.level=debug", "syslog.remote.1.address=10.0.0.1", "module.snmp.TRAP=0"}),
        silence);
    EXPECT_THAT(logctl.stored(), testing::ElementsAre("module.snmp.TRAP=critical", "syslog.file.level=debug",
                                                      "syslog.remote.1.address=10.0.0.1"));
    EXPECT_EQ(logctl({"reset", "syslog.remote.*", "syslog.file.level"}), silence);
    EXPECT_THAT(logctl.stored(), testing::ElementsAre("module.snmp.TRAP=critical"));
}

TEST_F(Changes, AreShownOnRequest) {
    EXPECT_EQ(
        logctl({"set", "-v", "syslog.file.path=/var/log/a=b/"}),
        refused(
            R"(syslog.file.path: "/var/log/a=b/" is not allowed; it must be an absolute path that ends in '/', at most 31 bytes of A-Z a-z 0-9 . _ / -)"));
    EXPECT_EQ(logctl({"set", "syslog.file.level=4", "module.fsm_pon.ont.3.1-2=debug",
                      "syslog.file.path=/run/", "-v"}),
              printed(R"(
syslog.file.path: /var/log/ -> /run/
module.fsm_pon.ont.3.1-2: notice -> debug
)"));
    EXPECT_EQ(logctl({"reset", "--verbose", "*"}), printed(R"(
syslog.file.path: /run/ -> /var/log/
module.fsm_pon.ont.3.1-2: debug -> notice
)"));
}

TEST_F(Changes, AreObjectsAndAStatusOnRequest) {
    auto const change = [this](Logctl::Words words) {
        words.insert(words.end(), {"syslog.rsh.level=debug", "module.fsm_pon.ont.3.1-2=debug"});
        return logctl(words);
    };
    Outcome const object{9, text(R"(
[
  {
    "path": "syslog.rsh.level",
    "old": "notice",
    "new": "debug"
  },
  {
    "path": "module.fsm_pon.ont.3.1",
    "old": "notice",
    "new": "debug"
  },
  {
    "path": "module.fsm_pon.ont.3.2",
    "old": "notice",
    "new": "debug"
  }
]
)"),
                         ""};
    EXPECT_EQ(logctl({"reset", "*", "--changed-exit"}), silence);
    EXPECT_EQ(change({"set", "--json", "--changed-exit=9", "--dry-run"}), object);
    EXPECT_EQ(change({"set", "--json", "--changed-exit=9"}), object);
    EXPECT_EQ(change({"set", "--json", "--changed-exit=9"}), (Outcome{0, "[]\n", ""}));
    EXPECT_EQ(logctl({"reset", "*", "--changed-exit"}), (Outcome{3, "", ""}));
    EXPECT_EQ(logctl({"rollback", "1", "--changed-exit"}).status, 3);
    EXPECT_EQ(logctl({"rollback", "2", "--dry-run", "--changed-exit=7"}).status, 7);
    EXPECT_EQ(change({"set", "--changed-exit=256"}).status, 2);
    EXPECT_EQ(change({"set", "--changed-exit=x"}).status, 2);
}

TEST_F(Changes, ADryRunSaysWhatItWouldChangeAndChangesNothing) {
    EXPECT_EQ(logctl({"set", "syslog.file.level=debug"}), silence);
    EXPECT_EQ(logctl({"set", "--dry-run", "syslog.*.level=error"}), printed(R"(
syslog.file.level: debug -> error
syslog.remote.level: notice -> error
syslog.kernel.level: warning -> error
syslog.rsh.level: notice -> error
)"));
    EXPECT_EQ(logctl({"reset", "--dry-run", "-v", "*"}),
              (Outcome{0, "syslog.file.level: debug -> info\n", ""}));
    EXPECT_THAT(logctl.stored(), testing::ElementsAre("syslog.file.level=debug"));
}

TEST_F(Changes, AreRefusedAllTogetherWithPathValueAndWhatIsAllowed) {
    std::pair<std::string, std::string> const cases[] = {
        {"syslog.file.level=loud",
         R"(syslog.file.level: "loud" is not allowed; it must be critical, error, warning, notice, info or debug (0 to 5))"},
        {"syslog.file.level=debgu",
         R"(syslog.file.level: "debgu" is not allowed; it must be critical, error, warning, notice, info or debug (0 to 5); did you mean "debug"?)"},
        {"syslog.file.size=1M",
         R"(syslog.file.size: "1M" is not allowed; it must be 65536 to 1073741824 bytes)"},
        {"syslog.remote.1.port=0", R"(syslog.remote.1.port: "0" is not allowed; it must be 1 to 65535)"},
        {"syslog.remote.1.address=10.0.0.01",
         R"(syslog.remote.1.address: "10.0.0.01" is not allowed; it must be a dotted IPv4 address, or 0.0.0.0 for an unused receiver)"},
        {"syslog.file.path=",
         R"(syslog.file.path: "" is not allowed; it must be an absolute path that ends in '/', at most 31 bytes of A-Z a-z 0-9 . _ / -)"},
        {"module.snmp.trap=debug",
         R"("module.snmp.trap": no such setting; did you mean "module.snmp.TRAP"?)"},
        {"module.snmp=debug", R"("module.snmp": no such setting; did you mean "module.snmp.*"?)"},
        {"module.fsm_pon.ont.3.250-260=debug",
         R"("module.fsm_pon.ont.3.250-260": 250-260 is not within 1-256)"},
        {"module.logconfig.SELF=error", "module.logconfig.SELF: built in and cannot be set"},
        {"syslog.remote.*.address=10.0.0.1", "syslog.remote.1 and syslog.remote.2 are both 10.0.0.1 port "
                                             "514; receivers must differ in address or port"},
        {"syslog.remote.2.address=224.0.0.1",
         R"(syslog.remote.2.address: "224.0.0.1" is not allowed; it must be the address of a host, or 0.0.0.0 for an unused receiver: 224.0.0.1 is a multicast address)"},
        {"syslog.file.path=/sys/log/",
         R"(syslog.file.path: "/sys/log/" is not allowed; it must be a folder that only root can write to, such as /var/log/: /sys holds no log files)"},
        {"=3", R"("": no such setting; all begin with "syslog." or "module.")"},
    };
    EXPECT_EQ(logctl({"reset", "*"}), silence);
    for (auto const& [assignment, reason] : cases) {
        EXPECT_EQ(logctl({"set", "syslog.rsh.level=debug", assignment}), refused(reason)) << assignment;
        EXPECT_EQ(logctl({"set", "--dry-run", "syslog.rsh.level=debug", assignment}), refused(reason))
            << assignment;
    }
    EXPECT_EQ(logctl({"reset", "module.logconfig.*"}),
              refused("module.logconfig.*: built in and cannot be set"));
    EXPECT_THAT(logctl.stored(), testing::IsEmpty());
}

TEST_F(Changes, AStoredRowThatIsNoSettingIsRemovedByItsPath) {
    EXPECT_EQ(logctl({"set", "syslog.rsh.level=debug"}), silence);
    logctl.sql("INSERT INTO setting VALUES('module.snmp.trap', 3), ('module.logconfig.SELF', 1)");
    EXPECT_EQ(logctl({"reset", "--dry-run", "module.snmp.trap", "syslog.rsh.level"}),
              (Outcome{0, "syslog.rsh.level: debug -> notice\n",
                       "logctl: \"module.snmp.trap\": no setting, the stored row would be removed\n"}));
    EXPECT_EQ(logctl({"reset", "module.snmp.trap", "module.logconfig.SELF"}),
              (Outcome{0, "",
                       "logctl: \"module.logconfig.SELF\": no setting, the stored row is removed\n"
                       "logctl: \"module.snmp.trap\": no setting, the stored row is removed\n"}));
    EXPECT_THAT(logctl.stored(), testing::ElementsAre("syslog.rsh.level=debug"));
    EXPECT_EQ(logctl({"reset", "module.snmp.trap"}),
              refused("\"module.snmp.trap\": no such setting; did you mean \"module.snmp.TRAP\"?"));
}

TEST_F(Changes, OfTheSessionManagerComeWithANote) {
    Outcome const noted{0, "", session_manager_note};
    EXPECT_EQ(logctl({"set", "module.sessionmgr.IPC=debug"}), noted);
    EXPECT_EQ(logctl({"set", "module.sessionmgr.IPC=debug"}), silence);
    EXPECT_EQ(logctl({"reset", "--dry-run", "*"}),
              (Outcome{0, "module.sessionmgr.IPC: debug -> notice\n", session_manager_note}));
    EXPECT_EQ(logctl({"reset", "*"}), noted);
}

TEST_F(Changes, AreSignedByTheirAuthor) {
    EXPECT_EQ(logctl({"set", "syslog.rsh.level=debug"}), silence); // as admin, through sudo
    EXPECT_EQ(test::RawDatabase{logctl.file}.value("SELECT author FROM history"), Logctl::author());
}

TEST_F(Changes, ThatTheDatabaseCannotTakeAreAFailure) {
    std::filesystem::create_directory(logctl.database);
    test::write_file(logctl.file, "no database");
    EXPECT_EQ(logctl({"set", "syslog.rsh.level=debug"}),
              refused(logctl.file.string() + ": file is not a database"));
}

} // namespace
} // namespace xpon::logctl
