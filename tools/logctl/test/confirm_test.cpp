// commit-confirm and confirm, where no systemd runs.

#include <algorithm>
#include <regex>

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
    void TearDown() override { logctl({"confirm"}); } // ends the process in the background

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
        std::regex{"logctl: undone in ([0-9]+) min ([0-9]+) s unless you confirm it: logctl confirm\n"}))
        << outcome.err;
    auto const seconds_left = 60 * std::stoll(left[1]) + std::stoll(left[2]);
    EXPECT_LE(seconds_left, 600);
    EXPECT_GE(seconds_left, 600 - took);
    EXPECT_LT(std::stoll(left[2]), 60);
    EXPECT_EQ(logctl({"confirm"}), silence);
    EXPECT_EQ(stored(), "module.snmp.TRAP=error syslog.rsh.level=debug ");
    EXPECT_EQ(logctl({"confirm"}), (Outcome{1, "", "logctl: nothing waits for a confirmation\n"}));
}

TEST_F(Confirm, AChangeThatIsNotConfirmedIsUndoneByItself) {
    EXPECT_EQ(logctl({"commit-confirm", "0.1", "syslog.rsh.level=debug", "module.snmp.*=error"}).status, 0);
    EXPECT_TRUE(wait_until_stored("syslog.rsh.level=info "));
    EXPECT_EQ(logctl({"confirm"}), (Outcome{1, "", "logctl: nothing waits for a confirmation\n"}));
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
    ASSERT_TRUE(cfgdb::commit_trial(transaction, long_ago, logctl.database).has_value());
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
    logctl.sql("UPDATE trial SET until = 1");
    EXPECT_THAT(logctl({"commit-confirm", "1", "syslog.rsh.level=error"}).err,
                HasSubstr("(it is undone as soon as possible, its time is over)"));
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
    ASSERT_TRUE(cfgdb::commit_trial(transaction, long_ago, logctl.database).has_value());
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

TEST_F(Confirm, ASecondOneIsRefusedWhileOneIsPending) {
    EXPECT_EQ(logctl({"commit-confirm", "10", "syslog.rsh.level=debug"}).status, 0);
    auto const second = logctl({"commit-confirm", "10", "syslog.kernel.level=debug"});
    EXPECT_EQ(second.status, 1);
    EXPECT_THAT(second.err, testing::MatchesRegex(
                                "logctl: transaction 2 of " + Logctl::author() +
                                " waits for its confirmation; confirm it with: logctl confirm, or undo it "
                                "with: logctl rollback 1 \\(it is undone in [0-9]+ min [0-9]+ s\\)\n"));
    EXPECT_EQ(stored(), "syslog.rsh.level=debug ");
}

TEST_F(Confirm, AfterARebootItIsUndoneBeforeTheDaemonStarts) {
    EXPECT_EQ(logctl({"commit-confirm", "10", "syslog.rsh.level=debug"}).status, 0);
    EXPECT_EQ(logctl({"commit-confirm", "--recover"}), silence); // the same boot, in time
    EXPECT_EQ(stored(), "syslog.rsh.level=debug ");
    logctl.sql("UPDATE trial SET boot = 'an earlier one'");
    EXPECT_EQ(logctl({"commit-confirm", "--recover"}), silence);
    EXPECT_EQ(stored(), "syslog.rsh.level=info ");
    EXPECT_EQ(logctl({"commit-confirm", "--recover"}), silence);
}

TEST_F(Confirm, TheProcessInTheBackgroundEndsWithTheConfirmation) {
    auto const count = [this] { return std::ranges::count(guards(), '\n'); };
    EXPECT_EQ(logctl({"commit-confirm", "10", "syslog.rsh.level=debug"}).status, 0);
    EXPECT_TRUE(test::wait_until([&] { return count() == 1; }));
    EXPECT_EQ(logctl({"commit-confirm", "20", "syslog.kernel.level=debug"}).status, 1);
    EXPECT_TRUE(test::wait_until([&] { return count() == 1; }));
    EXPECT_EQ(logctl({"confirm"}), silence);
    EXPECT_TRUE(test::wait_until([&] { return count() == 0; }));
}

TEST_F(Confirm, WhoseTimeIsOverIsUndoneAlsoWhereTheTimerWasLost) {
    EXPECT_EQ(logctl({"commit-confirm", "10", "syslog.rsh.level=debug"}).status, 0);
    logctl.sql("UPDATE trial SET until = 1");
    EXPECT_EQ(logctl({"commit-confirm", "--recover"}), silence);
    EXPECT_EQ(stored(), "syslog.rsh.level=info ");
}

TEST_F(Confirm, WhatIsRefusedLeavesNoTrace) {
    std::pair<std::string, std::string> const minutes[] = {
        {"0", "\"0\""}, {"x", "\"x\""}, {"nan", "\"nan\""}, {"10081", "\"10081\""}};
    for (auto const& [word, quoted] : minutes) {
        EXPECT_EQ(logctl({"commit-confirm", word, "syslog.rsh.level=debug"}),
                  (Outcome{1, "",
                           "logctl: " + quoted +
                               " is refused, allowed are more than 0 and up to 10080 minutes\n"}));
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
    EXPECT_EQ(logctl({"confirm"}), (Outcome{1, "", "logctl: nothing waits for a confirmation\n"}));
}

TEST(Recovery, WithoutADatabaseIsNoFailure) {
    Logctl const logctl;
    EXPECT_EQ(logctl({"commit-confirm", "--recover"}), (Outcome{0, "", ""}));
    EXPECT_FALSE(std::filesystem::exists(logctl.database));
}

} // namespace
} // namespace xpon::logctl
