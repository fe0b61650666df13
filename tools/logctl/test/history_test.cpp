// history and rollback.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logctl.hpp"

namespace xpon::logctl {
namespace {

class PastChanges : public testing::Test {
  protected:
    void SetUp() override {
        EXPECT_EQ(logctl({"set", "syslog.rsh.level=debug", "module.snmp.TRAP=error"}), silence);
        EXPECT_EQ(logctl({"set", "syslog.rsh.level=info"}), silence);
        EXPECT_EQ(logctl({"set", "syslog.file.size=65536"}), silence);
    }

    Outcome history(Logctl::Words const& words = {}) const {
        Logctl::Words all{"history"};
        all.insert(all.end(), words.begin(), words.end());
        auto outcome = logctl(all);
        outcome.out = without_times(outcome.out);
        return outcome;
    }

    Logctl logctl;
};

TEST_F(PastChanges, AreListedNewestLast) {
    auto const user = fmt::format("{:4}", Logctl::author());
    auto const heading =
        fmt::format("NUMBER  TIME                  {:{}}  PATH              CHANGE\n", "USER", user.size());
    auto const line = [&](int number, std::string const& change) {
        return fmt::format("{:6}  TIME  {}  {}\n", std::to_string(number), user, change);
    };
    EXPECT_EQ(history(), (Outcome{0,
                                  heading + line(1, "syslog.rsh.level  notice -> debug") +
                                      line(1, "module.snmp.TRAP  notice -> error") +
                                      line(2, "syslog.rsh.level  debug -> info") +
                                      line(3, "syslog.file.size  1048576 -> 65536"),
                                  ""}));
    EXPECT_EQ(history({"syslog.rsh"}), (Outcome{0,
                                                heading + line(1, "syslog.rsh.level  notice -> debug") +
                                                    line(2, "syslog.rsh.level  debug -> info"),
                                                ""}));
    EXPECT_EQ(history({"--limit", "1", "syslog.*"}),
              (Outcome{0, heading + line(3, "syslog.file.size  1048576 -> 65536"), ""}));
}

TEST_F(PastChanges, AreObjectsOnRequest) {
    EXPECT_EQ(history({"--json", "--limit", "1"}), (Outcome{0,
                                                            fmt::format(R"([
  {{
    "number": 3,
    "time": "TIME",
    "author": "{}",
    "path": "syslog.file.size",
    "old": "1048576",
    "new": "65536"
  }}
]
)",
                                                                        Logctl::author()),
                                                            ""}));
    EXPECT_EQ(history({"--json", "module.cli"}), (Outcome{0, "[]\n", ""}));
}

TEST_F(PastChanges, OfAnUnknownPathAreAFailure) {
    EXPECT_EQ(history({"syslog.rsh.leve"}),
              refused("\"syslog.rsh.leve\": no such setting; nearest: syslog.rsh.level"));
}

TEST_F(PastChanges, AreUndoneAsANewTransactionThatCanItselfBeUndone) {
    auto const undone = printed(R"(
syslog.file.size: 65536 -> 1048576
syslog.rsh.level: info -> debug
)");
    auto const all = logctl.stored();
    EXPECT_THAT(all, testing::ElementsAre("module.snmp.TRAP=error", "syslog.file.size=65536",
                                          "syslog.rsh.level=info"));
    EXPECT_EQ(logctl({"rollback", "1", "--dry-run"}), undone);
    EXPECT_EQ(logctl.stored(), all);
    EXPECT_EQ(logctl({"rollback", "1"}), undone);
    EXPECT_THAT(logctl.stored(), testing::ElementsAre("module.snmp.TRAP=error", "syslog.rsh.level=debug"));
    EXPECT_EQ(logctl({"rollback", "3"}), printed(R"(
syslog.file.size: 1048576 -> 65536
syslog.rsh.level: debug -> info
)"));
    EXPECT_EQ(logctl.stored(), all);
    EXPECT_EQ(logctl({"rollback", "5"}), silence);
    EXPECT_EQ(logctl({"rollback", "0"}).status, 0);
    EXPECT_THAT(logctl.stored(), testing::IsEmpty());
}

TEST_F(PastChanges, ThatTheHistoryDoesNotHoldCannotBeUndone) {
    EXPECT_EQ(logctl({"rollback", "4"}), refused("4: no such transaction; rollback accepts 0 to 3"));
    logctl.sql("DELETE FROM history WHERE number = 1");
    EXPECT_EQ(logctl({"rollback", "0"}), refused("0: no such transaction; rollback accepts 1 to 3"));
    EXPECT_EQ(logctl({"rollback", "x"}).status, 2);
}

} // namespace
} // namespace xpon::logctl
