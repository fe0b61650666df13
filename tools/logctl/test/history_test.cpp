// history and rollback.

#include <algorithm>
#include <regex>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/golden.hpp"
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
        if (std::ranges::count(words, "--json") == 0) {
            outcome.out = tidy(outcome.out);
        }
        return outcome;
    }

    /// Without what the tests cannot know, and with two spaces between the columns.
    static std::string tidy(std::string text) {
        auto const accounts = Logctl::caller().accounts();
        auto const user = accounts.empty() ? Logctl::author() : Logctl::author() + " (" + accounts + ")";
        for (auto at = text.find(user); at != std::string::npos; at = text.find(user)) {
            text.replace(at, user.size(), "USER");
        }
        text =
            std::regex_replace(text, std::regex{"confirmed by " + Logctl::author()}, "confirmed by AUTHOR");
        text = std::regex_replace(text, std::regex{"[0-9]+ min [0-9]+ s left"}, "LEFT left");
        return std::regex_replace(text, std::regex{"   +"}, "  ");
    }

    Logctl logctl;
};

TEST_F(PastChanges, AreListedNewestLast) {
    EXPECT_EQ(history(), (Outcome{0, text(R"(
NUMBER  TIME  USER  HOW  CHANGE
1  TIME  USER  set  syslog.rsh.level: notice -> debug; module.snmp.TRAP: notice -> error
2  TIME  USER  set  syslog.rsh.level: debug -> info
3  TIME  USER  set  syslog.file.size: 1048576 -> 65536
)"),
                                  ""}));
    EXPECT_EQ(history({"syslog.rsh"}), (Outcome{0, text(R"(
NUMBER  TIME  USER  HOW  CHANGE
1  TIME  USER  set  syslog.rsh.level: notice -> debug
2  TIME  USER  set  syslog.rsh.level: debug -> info
)"),
                                                ""}));
    EXPECT_EQ(history({"--limit", "1", "syslog.*"}), (Outcome{0, text(R"(
NUMBER  TIME  USER  HOW  CHANGE
3  TIME  USER  set  syslog.file.size: 1048576 -> 65536
)"),
                                                              ""}));
}

TEST_F(PastChanges, OfATransactionAreOneLineThatSaysHowAndWhy) {
    EXPECT_EQ(logctl({"set", "-m", "ticket 4711", "module.fsm_pon.ont.3.*=debug", "module.snmp.*=debug"}),
              silence);
    EXPECT_EQ(logctl({"reset", "--comment=all \"quiet\" again", "module.fsm_pon.ont.3.17", "syslog.*",
                      "module.snmp.TRAP"}),
              silence);
    test::write_file(logctl.scratch / "import", R"({"version": 1, "settings": {"module.snmp.*": "debug"}})");
    EXPECT_EQ(logctl({"import", (logctl.scratch / "import").string()}), silence);
    EXPECT_EQ(logctl({"rollback", "5", "-m", "that was wrong"}).status, 0);
    EXPECT_EQ(logctl({"commit-confirm", "-m", "try", "10", "syslog.rsh.level=error"}).status, 0);
    EXPECT_EQ(
        logctl({"set", "--for", "1h", "syslog.kernel.level=error", "module.fsm_pon.*.*.*=error"}).status, 0);
    EXPECT_EQ(logctl({"confirm"}), silence);
    EXPECT_EQ(logctl({"abort", "9"}).status, 0);
    EXPECT_EQ(logctl({"commit-confirm", "10", "syslog.rsh.level=info"}).status, 0);
    EXPECT_EQ(history({"--limit", "8"}).out, text(R"(
NUMBER  TIME  USER  HOW  CHANGE
4  TIME  USER  set  module.fsm_pon.ont.3.1-256: notice -> debug; module.snmp.SELF: notice -> debug; module.snmp.IPC: notice -> debug; and 5 more (ticket 4711)
5  TIME  USER  reset  syslog.file.size: 65536 -> 1048576; syslog.rsh.level: info -> notice; module.fsm_pon.ont.3.17: debug -> notice; and 1 more (all "quiet" again)
6  TIME  USER  import  module.fsm_pon.ont.3.1-16,18-256: debug -> notice; module.snmp.TRAP: notice -> debug
7  TIME  USER  rollback 5  module.fsm_pon.ont.3.1-16,18-256: notice -> debug; module.snmp.TRAP: debug -> notice (that was wrong)
8  TIME  USER  trial, confirmed by AUTHOR  syslog.rsh.level: notice -> error (try)
9  TIME  USER  temporary  syslog.kernel.level: warning -> error; module.fsm_pon.ont.1-2,4-16.1-256: notice -> error; module.fsm_pon.ont.3.1-16,18-256: debug -> error; and 1 more
10  TIME  USER  trial 9 aborted  syslog.kernel.level: error -> warning; module.fsm_pon.ont.1-2,4-16.1-256: error -> notice; module.fsm_pon.ont.3.1-16,18-256: error -> debug; and 1 more
11  TIME  USER  trial, LEFT left  syslog.rsh.level: error -> info
)"));
    EXPECT_EQ(history({"--full", "module.fsm_pon.ont.3.16-18", "--limit", "1"}).out, text(R"(
NUMBER  TIME  USER  HOW  CHANGE
10  TIME  USER  trial 9 aborted  module.fsm_pon.ont.3.16: error -> debug
10  TIME  USER  trial 9 aborted  module.fsm_pon.ont.3.17: error -> notice
10  TIME  USER  trial 9 aborted  module.fsm_pon.ont.3.18: error -> debug
)"));
}

TEST_F(PastChanges, AreSelectedByTheirTime) {
    logctl.sql("UPDATE history SET at = strftime('%s', '2024-05-31 08:15:00') WHERE number = 1");
    logctl.sql("UPDATE history SET at = strftime('%s') - 7200 WHERE number = 2");
    auto const lines = [this](std::string const& since) {
        return std::ranges::count(history({"--since", since}).out, '\n') - 1;
    };
    EXPECT_EQ(lines("2024-05-31"), 3);
    EXPECT_EQ(lines("2024-05-31T08:15:00Z"), 3);
    EXPECT_EQ(lines("2024-05-31T08:15:01Z"), 2);
    EXPECT_EQ(lines("3h"), 2);
    EXPECT_EQ(lines("1h"), 1);
    EXPECT_EQ(lines("400d"), 2);
    for (auto const* const time : {"", "yesterday", "2024-13-01", "2024-05-31 08:15"}) {
        EXPECT_EQ(
            history({"--since", time}),
            (Outcome{1, "",
                     fmt::format(
                         "logctl: --since: \"{}\" is not allowed; it must be an age such as 30m, 2h or 7d, "
                         "or a UTC time such as 2024-05-31 or 2024-05-31T08:15:00Z\n",
                         time)}));
    }
}

TEST_F(PastChanges, AreObjectsOnRequest) {
    EXPECT_EQ(history({"--json", "--limit", "1"}),
              (Outcome{0,
                       fmt::format(R"([
  {{
    "number": 3,
    "time": "TIME",
    "author": "{}",
    "account": "{}",
    "how": "set",
    "comment": "",
    "changes": [
      {{
        "path": "syslog.file.size",
        "old": "1048576",
        "new": "65536"
      }}
    ]
  }}
]
)",
                                   Logctl::author(), Logctl::caller().accounts()),
                       ""}));
    EXPECT_EQ(history({"--json", "module.cli"}), (Outcome{0, "[]\n", ""}));
}

TEST_F(PastChanges, MayHaveAShortComment) {
    std::string const longest(200, 'x');
    EXPECT_EQ(logctl({"set", "-m", longest + "x", "syslog.rsh.level=error"}),
              refused("--comment has 201 bytes; it must have at most 200"));
    EXPECT_EQ(logctl({"set", "-m", longest, "syslog.rsh.level=error"}), silence);
    EXPECT_EQ(logctl({"set", "-m", "\x1b[31m\n", "syslog.rsh.level=info"}), silence);
    EXPECT_EQ(history({"--limit", "1"}).out, text(R"(
NUMBER  TIME  USER  HOW  CHANGE
5  TIME  USER  set  syslog.rsh.level: error -> info ("\x1b[31m\x0a")
)"));
}

TEST_F(PastChanges, AreComparedWithTheSettingsAfterOneOfThem) {
    EXPECT_EQ(logctl({"compare", "1"}), (Outcome{0, text(R"(
syslog.file.size: 1048576 -> 65536
syslog.rsh.level: debug -> info
)"),
                                                 ""}));
    EXPECT_EQ(logctl({"compare", "3"}), silence);
    Outcome const with_defaults{0, text(R"(
syslog.file.size: 1048576 -> 65536
syslog.rsh.level: notice -> info
module.snmp.TRAP: notice -> error
)"),
                                ""};
    EXPECT_EQ(logctl({"compare"}), with_defaults);
    EXPECT_EQ(logctl({"compare", "0"}), with_defaults);
    EXPECT_EQ(logctl({"compare", "2", "--json"}), (Outcome{0, text(R"(
[
  {
    "path": "syslog.file.size",
    "then": "1048576",
    "now": "65536"
  }
]
)"),
                                                           ""}));
    EXPECT_EQ(logctl({"compare", "4"}), refused("4: no such transaction; it must be 0 to 3"));
    auto const file = (logctl.scratch / "settings.json").string();
    test::write_file(file,
                     R"({"version": 1, "settings": {"syslog.rsh.level": 4, "module.snmp.*": "error"}})");
    EXPECT_EQ(logctl({"set", "module.snmp.*=error", "module.snmp.SET=debug"}), silence);
    EXPECT_EQ(logctl({"compare", file}), (Outcome{0, text(R"(
syslog.file.size: 1048576 -> 65536
module.snmp.SET: error -> debug
)"),
                                                  ""}));
    EXPECT_EQ(logctl({"compare", "/nowhere"}),
              (Outcome{1, "", "logctl: /nowhere: cannot be opened (No such file or directory)\n"}));
}

TEST_F(PastChanges, OfAnUnknownPathAreAFailure) {
    EXPECT_EQ(history({"syslog.rsh.leve"}),
              refused("\"syslog.rsh.leve\": no such setting; did you mean \"syslog.rsh.level\"?"));
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
    EXPECT_EQ(logctl({"rollback", "4"}), refused("4: no such transaction; it must be 0 to 3"));
    logctl.sql("DELETE FROM history WHERE number = 1");
    EXPECT_EQ(logctl({"rollback", "0"}), refused("0: no such transaction; it must be 1 to 3"));
    EXPECT_EQ(logctl({"rollback", "x"}).status, 2);
}

} // namespace
} // namespace xpon::logctl
