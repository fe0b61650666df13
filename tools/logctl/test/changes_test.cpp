// set and reset.

#include <sqlite3.h>
#include <unistd.h>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logctl.hpp"
#include "xpon/cfgdb/transaction.hpp"

namespace xpon::logctl {
namespace {

Outcome const silence{0, "", ""};
constexpr char const* session_manager_note = "logctl: note: a level of the session manager takes effect when "
                                             "the daemon is next restarted, not before\n";

class Changes : public testing::Test {
  protected:
    Outcome refused(std::string const& reason) const { return {1, "", "logctl: " + reason + "\n"}; }

    /// "path=value" of every row in the database.
    std::vector<std::string> stored() const {
        auto const rows = cfgdb::stored_settings(logctl.database);
        std::vector<std::string> all;
        for (auto const& row : rows.value()) {
            all.push_back(fmt::format("{}={}", row.path, row.value));
        }
        return all;
    }

    Logctl logctl;
};

TEST_F(Changes, AreMadeWithoutAWord) {
    EXPECT_EQ(
        logctl({"set", "syslog.file.level=debug", "syslog.remote.1.address=10.0.0.1", "module.snmp.TRAP=0"}),
        silence);
    EXPECT_THAT(stored(), testing::ElementsAre("module.snmp.TRAP=critical", "syslog.file.level=debug",
                                               "syslog.remote.1.address=10.0.0.1"));
    EXPECT_EQ(logctl({"reset", "syslog.remote.*", "syslog.file.level"}), silence);
    EXPECT_THAT(stored(), testing::ElementsAre("module.snmp.TRAP=critical"));
}

TEST_F(Changes, AreToldOnRequest) {
    EXPECT_EQ(
        logctl({"set", "-v", "syslog.file.path=/var/log/a=b/"}),
        refused(
            R"(syslog.file.path: "/var/log/a=b/" is refused, allowed is an absolute path that ends in '/', at most 31 bytes of A-Z a-z 0-9 . _ / -)"));
    EXPECT_EQ(logctl({"set", "syslog.file.level=4", "module.fsm_pon.ont.3.1-2=debug",
                      "syslog.file.path=/run/", "-v"}),
              (Outcome{0, text(R"(
syslog.file.path: /var/log/ -> /run/
module.fsm_pon.ont.3.1-2: notice -> debug
)"),
                       ""}));
    EXPECT_EQ(logctl({"reset", "--verbose", "*"}), (Outcome{0, text(R"(
syslog.file.path: /run/ -> /var/log/
module.fsm_pon.ont.3.1-2: debug -> notice
)"),
                                                            ""}));
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
    EXPECT_EQ(logctl({"set", "--dry-run", "syslog.*.level=error"}), (Outcome{0, text(R"(
syslog.file.level: debug -> error
syslog.remote.level: notice -> error
syslog.kernel.level: warning -> error
syslog.rsh.level: notice -> error
)"),
                                                                             ""}));
    EXPECT_EQ(logctl({"reset", "--dry-run", "-v", "*"}),
              (Outcome{0, "syslog.file.level: debug -> info\n", ""}));
    EXPECT_THAT(stored(), testing::ElementsAre("syslog.file.level=debug"));
}

TEST_F(Changes, AreRefusedAllTogetherWithPathValueAndWhatIsAllowed) {
    std::pair<std::string, std::string> const cases[] = {
        {"syslog.file.level=loud",
         R"(syslog.file.level: "loud" is refused, allowed is critical, error, warning, notice, info or debug (0 to 5))"},
        {"syslog.file.size=1M", R"(syslog.file.size: "1M" is refused, allowed is 65536 to 1073741824 bytes)"},
        {"syslog.remote.1.port=0", R"(syslog.remote.1.port: "0" is refused, allowed is 1 to 65535)"},
        {"syslog.remote.1.address=10.0.0.01",
         R"(syslog.remote.1.address: "10.0.0.01" is refused, allowed is a dotted IPv4 address, 0.0.0.0 for an unused receiver)"},
        {"syslog.file.path=",
         R"(syslog.file.path: "" is refused, allowed is an absolute path that ends in '/', at most 31 bytes of A-Z a-z 0-9 . _ / -)"},
        {"module.snmp.trap=debug", R"("module.snmp.trap": no such setting; nearest: module.snmp.TRAP)"},
        {"module.snmp=debug", R"("module.snmp": no such setting; nearest: module.snmp.*)"},
        {"module.fsm_pon.ont.3.250-260=debug",
         R"("module.fsm_pon.ont.3.250-260": 250-260 is not within 1-256)"},
        {"module.logconfig.SELF=error", "module.logconfig.SELF: built in and cannot be set"},
        {"syslog.remote.*.address=10.0.0.1", "syslog.remote.1 and syslog.remote.2 are both 10.0.0.1 port "
                                             "514, allowed is each address and port once"},
        {"syslog.remote.2.address=224.0.0.1",
         R"(syslog.remote.2.address: "224.0.0.1" is refused: 224.0.0.1 is a multicast address; allowed is the address of a host, or 0.0.0.0 for an unused receiver)"},
        {"syslog.file.path=/sys/log/",
         R"(syslog.file.path: "/sys/log/" is refused: /sys holds no log files; allowed is a folder that root alone may write, such as /var/log/)"},
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
    EXPECT_THAT(stored(), testing::IsEmpty());
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
    EXPECT_THAT(stored(), testing::ElementsAre("syslog.rsh.level=debug"));
    EXPECT_EQ(logctl({"reset", "module.snmp.trap"}),
              refused("\"module.snmp.trap\": no such setting; nearest: module.snmp.TRAP"));
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
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(logctl.file.c_str(), &database), SQLITE_OK);
    std::string author;
    auto const remember = [](void* out, int, char** values, char**) {
        *static_cast<std::string*>(out) = values[0];
        return 0;
    };
    EXPECT_EQ(sqlite3_exec(database, "SELECT author FROM history", remember, &author, nullptr), SQLITE_OK);
    sqlite3_close(database);
    EXPECT_EQ(author, Logctl::author());
}

TEST_F(Changes, ThatTheDatabaseCannotTakeAreAFailure) {
    std::filesystem::create_directory(logctl.database);
    test::write_file(logctl.file, "no database");
    EXPECT_EQ(logctl({"set", "syslog.rsh.level=debug"}),
              refused(logctl.file.string() + ": file is not a database"));
}

} // namespace
} // namespace xpon::logctl
