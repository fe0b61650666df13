// Trials, where no systemd runs.

#include <algorithm>
#include <array>
#include <csignal>
#include <regex>

#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/unique_fd.hpp"
#include "kit/fifo.hpp"
#include "kit/golden.hpp"
#include "logctl.hpp"
#include "xpon/cfgdb/trial.hpp"

namespace xpon::logctl {
namespace {

using testing::HasSubstr;

class Confirm : public testing::Test {
  protected:
    void SetUp() override { EXPECT_EQ(logctl({"set", "syslog.rsh.level=info"}), silence); }
    void TearDown() override { logctl({"set", "module.*=notice", "syslog.*.level=info"}); } // ends all trials

    std::string stored() const {
        std::string all;
        auto const rows = cfgdb::stored_settings(logctl.database).value();
        for (auto const& row : rows) {
            all += row.path + "=" + row.value + " ";
        }
        return all;
    }

    bool wait_until_stored(std::string const& expected) const {
        return test::wait_until([&] { return stored() == expected; });
    }

    /// The processes in the background, a line each: number and command line.
    std::string guards() const {
        auto const all = logctl.scratch / "guards";
        test::ChildProcess search{
            {.argv = {"pgrep", "-a", "-f", logctl.database.string() + " commit-confirm --guard"},
             .output = all}};
        search.wait();
        auto found = test::read_file(all);
        std::filesystem::remove(all);
        return found;
    }

    /// When the trial of the first of these processes ends.
    static cfgdb::BootInstant end_of(std::string const& guards) {
        constexpr std::string_view option = "--guard ";
        auto end = cfgdb::BootInstant::in(0);
        end.seconds = std::stoll(guards.substr(guards.find(option) + option.size()));
        return end;
    }

    /// The column of what is left, whose times the tests cannot know.
    static std::string without_durations(std::string const& text) {
        return std::regex_replace(text, std::regex{"([0-9]+ [a-z]+ [0-9]+ [a-z]+|LEFT) +"}, "LEFT ");
    }

    Outcome const silence{0, "", ""};
    Logctl logctl;
};

TEST_F(Confirm, AChangeThatIsConfirmedStays) {
    auto const begin = cfgdb::BootInstant::in(0);
    auto const outcome =
        logctl({"commit-confirm", "-v", "10", "syslog.rsh.level=debug", "module.snmp.TRAP=error"});
    auto const took = cfgdb::BootInstant::in(0).seconds - begin.seconds;
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, text(R"(
syslog.rsh.level: info -> debug
module.snmp.TRAP: notice -> error
)"));
    std::smatch left;
    ASSERT_TRUE(std::regex_match(
        outcome.err, left,
        std::regex{
            "logctl: trial 2: undone in ([0-9]+) min ([0-9]+) s unless you confirm it: logctl confirm 2\n"}))
        << outcome.err;
    auto const seconds_left = 60 * std::stoll(left[1]) + std::stoll(left[2]);
    EXPECT_LE(seconds_left, 600);
    EXPECT_GE(seconds_left, 600 - took);
    EXPECT_LT(std::stoll(left[2]), 60);
    EXPECT_EQ(logctl({"confirm"}), silence);
    EXPECT_EQ(stored(), "module.snmp.TRAP=error syslog.rsh.level=debug ");
    EXPECT_EQ(logctl({"confirm", "2"}),
              (Outcome{1, "", "logctl: no trial 2 is pending; see: logctl trials\n"}));
    EXPECT_EQ(logctl({"confirm"}),
              (Outcome{1, "", "logctl: no trial waits for a confirmation; see: logctl trials\n"}));
}

TEST_F(Confirm, AChangeThatIsNotConfirmedIsUndoneByItself) {
    EXPECT_EQ(logctl({"commit-confirm", "0.1", "syslog.rsh.level=debug", "module.snmp.*=error"}).status, 0);
    EXPECT_TRUE(wait_until_stored("syslog.rsh.level=info "));
    EXPECT_EQ(logctl({"confirm"}),
              (Outcome{1, "", "logctl: no trial waits for a confirmation; see: logctl trials\n"}));
}

TEST_F(Confirm, AChangeThatIsMadeAfterItsTimeIsUndoneAtOnce) {
    sqlite3* other = nullptr;
    sqlite3_open(logctl.file.c_str(), &other);
    sqlite3_busy_timeout(other, 20000);
    EXPECT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    auto running = logctl.start({"commit-confirm", "0.01", "syslog.rsh.level=debug"});
    EXPECT_TRUE(test::wait_until([&] { return !guards().empty(); })); // set before the change is made
    running.kill(SIGSTOP);                                            // else it would give up after 5 s
    auto const end = end_of(guards());
    EXPECT_TRUE(test::wait_until([&] { return end.over(); }));
    sqlite3_close(other);
    running.kill(SIGCONT);
    EXPECT_EQ(running.finish(),
              (Outcome{1, "", "logctl: the time was over before the change was made, so it is undone\n"}));
    EXPECT_EQ(stored(), "syslog.rsh.level=info ");
}

TEST_F(Confirm, WhatCannotBeUndoneInTimeIsUndoneOnceItCan) {
    auto const long_ago = cfgdb::BootInstant::in(-1);
    cfgdb::Transaction transaction;
    ASSERT_TRUE(transaction.set("syslog.rsh.level", "debug").has_value());
    ASSERT_TRUE(cfgdb::commit_trial(transaction, {long_ago}, logctl.database).has_value());
    sqlite3* other = nullptr;
    sqlite3_open(logctl.file.c_str(), &other);
    EXPECT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    auto guard = logctl.start({"commit-confirm", "--guard", std::to_string(long_ago.seconds)});
    auto const given_up = cfgdb::BootInstant::in(7); // for the first time, after 5 s
    EXPECT_TRUE(test::wait_until([&] { return given_up.over(); }));
    EXPECT_EQ(stored(), "syslog.rsh.level=debug ");
    sqlite3_close(other);
    EXPECT_EQ(guard.finish(), silence);
    EXPECT_EQ(stored(), "syslog.rsh.level=info ");
}

TEST_F(Confirm, AValueThatWasNotAllowedIsNotPutBack) {
    logctl.sql("UPDATE setting SET value = 9");
    EXPECT_EQ(logctl({"commit-confirm", "10", "syslog.rsh.level=debug", "module.snmp.TRAP=error"}).status, 0);
    logctl.sql("UPDATE pending SET until = 1");
    EXPECT_EQ(logctl({"commit-confirm", "--recover"}), silence);
    EXPECT_EQ(stored(), ""); // all at the default
}

TEST_F(Confirm, TheProcessInTheBackgroundWaitsForALateChange) {
    test::Fifo const pipe{logctl.scratch / "pipe"};
    auto const long_ago = cfgdb::BootInstant::in(-1);
    test::ChildProcess guard{
        {.argv = {"bash", "-c", R"(exec "$@" < "$PIPE")", "bash", LOGCTL_PROGRAM, "--database",
                  logctl.database, "commit-confirm", "--guard", std::to_string(long_ago.seconds)},
         .environment = {"PIPE=" + pipe.path()}}};
    auto undecided = pipe.wait_for_reader();
    ASSERT_TRUE(undecided);
    EXPECT_TRUE(test::wait_until([&] { return !guards().empty(); }));
    cfgdb::Transaction transaction;
    ASSERT_TRUE(transaction.set("syslog.rsh.level", "debug").has_value());
    ASSERT_TRUE(cfgdb::commit_trial(transaction, {long_ago}, logctl.database).has_value());
    undecided.reset();
    EXPECT_TRUE(wait_until_stored("syslog.rsh.level=info "));
    EXPECT_EQ(guard.wait(), 0);
}

TEST_F(Confirm, WhatOthersHaveChangedMeanwhileStays) {
    EXPECT_EQ(logctl({"commit-confirm", "0.1", "syslog.rsh.level=debug", "syslog.kernel.level=debug"}).status,
              0);
    EXPECT_EQ(logctl({"set", "syslog.rsh.level=critical", "module.snmp.TRAP=error"}), silence);
    EXPECT_TRUE(wait_until_stored("module.snmp.TRAP=error syslog.rsh.level=critical "));
}

TEST_F(Confirm, SeveralArePendingUnlessTheyShareASetting) {
    EXPECT_EQ(logctl({"trials"}), (Outcome{0, "no trial is pending\n", ""}));
    EXPECT_EQ(logctl({"trials", "--json"}), (Outcome{0, "[]\n", ""}));
    EXPECT_EQ(logctl({"commit-confirm", "10", "syslog.rsh.level=debug"}).status, 0);
    EXPECT_EQ(logctl({"commit-confirm", "120", "module.fsm_pon.ont.3.1-16=debug", "module.snmp.*=error",
                      "module.fsm_pon.ont.3.18=debug", "module.fsm_pon.olt=info"})
                  .status,
              0);
    EXPECT_EQ(logctl({"commit-confirm", "10", "syslog.rsh.level=error"}),
              (Outcome{1, "",
                       "logctl: syslog.rsh.level: on trial 2 of " + Logctl::author() +
                           "; end that first: logctl confirm 2 or logctl abort 2\n"}));
    EXPECT_EQ(without_durations(logctl({"trials"}).out),
              fmt::format(R"(NUMBER  USER   LEFT UNLESS     PUTS BACK
2       {0}  LEFT confirmed  syslog.rsh.level=info
3       {0}  LEFT confirmed  module.fsm_pon.olt=notice module.fsm_pon.ont.3.1-16,18=notice module.snmp.*=notice
)",
                          Logctl::author()));
    EXPECT_EQ(logctl({"confirm"}),
              (Outcome{1, "", "logctl: trials 2, 3 wait for a confirmation; name one: logctl confirm 2\n"}));
    EXPECT_EQ(logctl({"confirm", "2"}), silence);
    EXPECT_EQ(logctl({"abort"}), (Outcome{0, text(R"(
module.fsm_pon.olt: info -> notice
module.fsm_pon.ont.3.1-16,18: debug -> notice
module.snmp.*: error -> notice
)"),
                                          ""}));
    EXPECT_EQ(stored(), "syslog.rsh.level=debug ");
    EXPECT_EQ(logctl({"abort", "3"}),
              (Outcome{1, "", "logctl: no trial 3 is pending; see: logctl trials\n"}));
}

TEST_F(Confirm, ItsEndCanBePutOff) {
    auto const seconds_left = [this] {
        auto const out = logctl({"trials", "--json"}).out;
        constexpr std::string_view key = "\"seconds_left\": ";
        auto const at = out.find(key);
        return at == std::string::npos ? -1 : std::stoll(out.substr(at + key.size()));
    };
    EXPECT_EQ(logctl({"commit-confirm", "10", "syslog.rsh.level=debug"}).status, 0);
    EXPECT_THAT(logctl({"extend", "2", "2h"}).err,
                testing::MatchesRegex("logctl: trial 2: ends in 2 h [0-9]+ min\n"));
    EXPECT_GT(seconds_left(), 2 * 60 * 60);
    EXPECT_TRUE(test::wait_until([&] { return std::ranges::count(guards(), '\n') == 1; })) << guards();
    EXPECT_EQ(logctl({"extend", "2", "30d"}),
              (Outcome{1, "", "logctl: trial 2 would end in 30 d 2 h; a trial lasts at most 30 d 0 h\n"}));
    for (auto const* const time : {"", "0s", "-1m", "5", "m", "1w", "31d", "nan"}) {
        EXPECT_EQ(
            logctl({"extend", "2", "--", time}),
            (Outcome{
                1, "",
                fmt::format("logctl: TIME: \"{}\" is not allowed; it must be a time such as 90s, 30m, 2h or "
                            "7d, up to 30d\n",
                            time)}));
    }
    EXPECT_EQ(logctl({"extend", "3", "1m"}),
              (Outcome{1, "", "logctl: no trial 3 is pending; see: logctl trials\n"}));
    logctl.sql("UPDATE pending SET until = 1");
    EXPECT_EQ(logctl({"extend", "2", "1m"}), // any command ends those whose time is over
              (Outcome{1, "", "logctl: no trial 2 is pending; see: logctl trials\n"}));
    EXPECT_EQ(stored(), "syslog.rsh.level=info ");
}

TEST_F(Confirm, WhatIsSetForATimeNeedsNone) {
    EXPECT_THAT(
        logctl({"set", "--for", "90m", "syslog.rsh.level=debug"}).err,
        testing::MatchesRegex("logctl: trial 2: put back in 1 h (30|29) min; before that: logctl abort 2\n"));
    EXPECT_EQ(logctl({"commit-confirm", "10", "syslog.kernel.level=debug"}).status, 0);
    EXPECT_EQ(without_durations(logctl({"trials"}).out),
              fmt::format(R"(NUMBER  USER   LEFT UNLESS     PUTS BACK
2       {0}  LEFT aborted    syslog.rsh.level=info
3       {0}  LEFT confirmed  syslog.kernel.level=warning
)",
                          Logctl::author()));
    EXPECT_EQ(logctl({"confirm"}), silence); // the one that needs it
    EXPECT_EQ(logctl({"confirm"}),
              (Outcome{1, "", "logctl: no trial waits for a confirmation; see: logctl trials\n"}));
    logctl.sql("UPDATE pending SET until = 1");
    EXPECT_EQ(logctl({"trials"}), (Outcome{0, "no trial is pending\n", ""}));
    EXPECT_EQ(stored(), "syslog.kernel.level=debug syslog.rsh.level=info ");
}

TEST_F(Confirm, WhatIsSetForASecondIsPutBackByItself) {
    EXPECT_EQ(logctl({"set", "--for=1s", "syslog.rsh.level=debug"}).status, 0);
    EXPECT_TRUE(wait_until_stored("syslog.rsh.level=info "));
}

TEST_F(Confirm, NothingIsSetForATimeThatIsNone) {
    for (auto const* const time : {"", "0", "30", "0m", "31d", "1h30m", "-1s", "1e9s"}) {
        EXPECT_EQ(
            logctl({"set", "--for", time, "syslog.rsh.level=debug"}),
            (Outcome{
                1, "",
                fmt::format("logctl: --for: \"{}\" is not allowed; it must be a time such as 90s, 30m, 2h or "
                            "7d, up to 30d\n",
                            time)}));
    }
    EXPECT_EQ(logctl({"set", "--for", "1m", "--dry-run", "syslog.rsh.level=debug"}),
              (Outcome{0, "syslog.rsh.level: info -> debug\n", ""}));
    EXPECT_EQ(logctl({"set", "--for", "1m", "syslog.rsh.level=info"}),
              (Outcome{0, "", "logctl: nothing is changed, so there is nothing to put back\n"}));
    EXPECT_EQ(stored(), "syslog.rsh.level=info ");
}

TEST_F(Confirm, IsShownWithTheSettings) {
    EXPECT_EQ(
        logctl({"commit-confirm", "10", "syslog.rsh.level=debug", "module.fsm_pon.ont.1.1=debug"}).status, 0);
    logctl.sql("UPDATE pending SET until = until + 3600 * 24 * 3");
    EXPECT_EQ(
        std::regex_replace(logctl({"show", "syslog.rsh", "syslog.kernel", "module.fsm_pon.ont.1.1"}).out,
                           std::regex{"3 d 0 h"}, "LEFT"),
        text(R"(
PATH                    VALUE    DEFAULT  STORED
syslog.kernel.level     warning  warning  default
syslog.rsh.level        debug    notice   trial 2, LEFT left
module.fsm_pon.ont.1.1  debug    notice   trial 2, LEFT left
)"));
    EXPECT_EQ(std::regex_replace(logctl({"show", "--json", "syslog.rsh"}).out,
                                 std::regex{"\"seconds_left\": [0-9]+"}, "\"seconds_left\": N"),
              text(R"(
[
  {
    "path": "syslog.rsh.level",
    "value": "debug",
    "default": "notice",
    "stored": "database",
    "allowed": true,
    "trial": {
      "number": 2,
      "seconds_left": N
    }
  }
]
)"));
}

TEST_F(Confirm, NoOperatorsTerminalIsWaitedFor) {
    test::Fifo const full{logctl.scratch / "full"};
    core::UniqueFd const pipe{open(full.path().c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC)};
    std::array<char, 4096> const page{};
    while (write(pipe.get(), page.data(), page.size()) > 0) {
    }
    test::ChildProcess stuck{
        {.argv = {"bash", "-c", R"(exec "$@" > "$FULL")", "bash", LOGCTL_PROGRAM, "--database",
                  logctl.database, "commit-confirm", "-v", "0.03", "syslog.rsh.level=debug"},
         .environment = {"FULL=" + full.path()}}};
    EXPECT_TRUE(wait_until_stored("syslog.rsh.level=debug "));
    EXPECT_TRUE(wait_until_stored("syslog.rsh.level=info "));
    stuck.kill(SIGKILL); // it still waits for somebody to read what it has changed
    EXPECT_EQ(stuck.wait(), 128 + SIGKILL);
}

TEST_F(Confirm, AfterARebootItIsUndoneBeforeTheDaemonStarts) {
    EXPECT_EQ(logctl({"commit-confirm", "10", "syslog.rsh.level=debug"}).status, 0);
    EXPECT_EQ(logctl({"commit-confirm", "--recover"}), silence); // the same boot, in time
    EXPECT_EQ(stored(), "syslog.rsh.level=debug ");
    logctl.sql("UPDATE pending SET boot = 'an earlier one'");
    EXPECT_EQ(logctl({"commit-confirm", "--recover"}), silence);
    EXPECT_EQ(stored(), "syslog.rsh.level=info ");
    EXPECT_EQ(logctl({"commit-confirm", "--recover"}), silence);
}

TEST_F(Confirm, TheProcessInTheBackgroundEndsWithItsTrial) {
    auto const count = [this] { return std::ranges::count(guards(), '\n'); };
    EXPECT_EQ(logctl({"commit-confirm", "10", "syslog.rsh.level=debug"}).status, 0);
    EXPECT_TRUE(test::wait_until([&] { return count() == 1; }));
    EXPECT_EQ(logctl({"commit-confirm", "20", "syslog.rsh.level=error"}).status, 1);
    EXPECT_TRUE(test::wait_until([&] { return count() == 1; }));
    EXPECT_EQ(logctl({"commit-confirm", "20", "syslog.kernel.level=debug"}).status, 0);
    EXPECT_TRUE(test::wait_until([&] { return count() == 2; }));
    EXPECT_EQ(logctl({"set", "syslog.kernel.level=debug"}), silence);
    EXPECT_TRUE(test::wait_until([&] { return count() == 1; }));
    EXPECT_EQ(logctl({"confirm"}), silence);
    EXPECT_TRUE(test::wait_until([&] { return count() == 0; }));
}

TEST_F(Confirm, WhoseProcessWasKilledIsUndoneByAnyCommand) {
    EXPECT_EQ(logctl({"commit-confirm", "10", "syslog.rsh.level=debug"}).status, 0);
    EXPECT_TRUE(test::wait_until([&] { return !guards().empty(); }));
    kill(static_cast<pid_t>(std::stol(guards())), SIGKILL);
    logctl.sql("UPDATE pending SET until = 1");
    EXPECT_EQ(logctl({"trials"}), (Outcome{0, "no trial is pending\n", ""}));
    EXPECT_EQ(stored(), "syslog.rsh.level=info ");
}

TEST_F(Confirm, WhoseTimeIsOverIsUndoneAlsoWhereTheTimerWasLost) {
    EXPECT_EQ(logctl({"commit-confirm", "10", "syslog.rsh.level=debug"}).status, 0);
    logctl.sql("UPDATE pending SET until = 1");
    EXPECT_EQ(logctl({"commit-confirm", "--recover"}), silence);
    EXPECT_EQ(stored(), "syslog.rsh.level=info ");
}

TEST_F(Confirm, WhatIsRefusedLeavesNoTrace) {
    std::pair<std::string, std::string> const minutes[] = {
        {"0", "\"0\""}, {"x", "\"x\""}, {"nan", "\"nan\""}, {"10081", "\"10081\""}};
    for (auto const& [word, quoted] : minutes) {
        EXPECT_EQ(logctl({"commit-confirm", word, "syslog.rsh.level=debug"}),
                  (Outcome{1, "",
                           "logctl: MINUTES: " + quoted +
                               " is not allowed; it must be more than 0 and at most 10080\n"}));
    }
    EXPECT_THAT(logctl({"commit-confirm", "1", "syslog.rsh.level=loud"}).err,
                HasSubstr("\"loud\" is not allowed"));
    EXPECT_EQ(logctl({"commit-confirm", "1"}).status, 2);
    EXPECT_EQ(logctl({"commit-confirm", "1", "x"}).status, 2);
    EXPECT_EQ(logctl({"commit-confirm", "1", "--dry-run", "syslog.rsh.level=debug"}),
              (Outcome{0, "syslog.rsh.level: info -> debug\n", ""}));
    EXPECT_EQ(logctl({"commit-confirm", "1", "syslog.rsh.level=info"}),
              (Outcome{0, "", "logctl: nothing is changed, so there is nothing to confirm\n"}));
    EXPECT_EQ(stored(), "syslog.rsh.level=info ");
    EXPECT_EQ(logctl({"confirm"}),
              (Outcome{1, "", "logctl: no trial waits for a confirmation; see: logctl trials\n"}));
}

TEST(Recovery, WithoutADatabaseIsNoFailure) {
    Logctl const logctl;
    EXPECT_EQ(logctl({"commit-confirm", "--recover"}), (Outcome{0, "", ""}));
    EXPECT_FALSE(std::filesystem::exists(logctl.database));
}

} // namespace
} // namespace xpon::logctl
