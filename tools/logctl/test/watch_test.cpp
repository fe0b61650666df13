// watch, as far as it needs no bus.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logctl.hpp"

namespace xpon::logctl {
namespace {

class DatabaseWatch : public testing::Test {
  protected:
    void SetUp() override { EXPECT_EQ(logctl({"set", "syslog.rsh.level=debug"}), silence); }

    Logctl logctl;
    std::string watching = "logctl: watching " + logctl.database.string() + "\n";
};

TEST_F(DatabaseWatch, ShowsEachChangeAsItHappensAndNoneFromBefore) {
    auto watch = logctl.start({"watch"});
    ASSERT_TRUE(watch.wait_for_error(watching));
    EXPECT_EQ(logctl({"set", "syslog.rsh.level=info", "module.fsm_pon.ont.3.1-2=debug"}), silence);
    ASSERT_TRUE(watch.wait_for_output("ont.3.2"));
    EXPECT_EQ(logctl({"reset", "syslog.rsh.level"}), silence);
    ASSERT_TRUE(watch.wait_for_output("notice\n"));
    watch.kill(SIGTERM);
    auto const outcome = watch.finish();
    auto const author = Logctl::author();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, watching);
    EXPECT_EQ(without_times(outcome.out), "TIME " + author +
                                              " changed syslog.rsh.level: debug -> info\n"
                                              "TIME " +
                                              author +
                                              " changed module.fsm_pon.ont.3.1: notice -> debug\n"
                                              "TIME " +
                                              author +
                                              " changed module.fsm_pon.ont.3.2: notice -> debug\n"
                                              "TIME " +
                                              author + " changed syslog.rsh.level: info -> notice\n");
}

TEST_F(DatabaseWatch, PrintsOneObjectPerLineOnRequestAndEndsAfterAsManyAsWanted) {
    auto watch = logctl.start({"watch", "--json", "--count", "2", "--timeout", "20"});
    ASSERT_TRUE(watch.wait_for_error(watching));
    EXPECT_EQ(logctl({"reset", "*"}), silence);
    EXPECT_EQ(logctl({"set", "syslog.file.size=65536", "module.snmp.*=debug"}), silence);
    auto const outcome = watch.finish();
    auto const author = Logctl::author();
    auto const line = [&](int number, std::string const& rest) {
        return fmt::format(R"({{"time":"TIME","event":"change","number":{},"author":"{}",{}}})", number,
                           author, rest) +
               "\n";
    };
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(without_times(outcome.out),
              line(2, R"("path":"syslog.rsh.level","old":"debug","new":"notice")") +
                  line(3, R"("path":"syslog.file.size","old":"1048576","new":"65536")"));
}

TEST_F(DatabaseWatch, EndsAtItsTimeout) {
    EXPECT_EQ(logctl({"watch", "--timeout", "0.01"}), (Outcome{0, "", watching}));
    EXPECT_EQ(logctl({"watch", "--timeout", "0.01", "--count", "3"}),
              (Outcome{1, "", watching + "logctl: 0 of 3 events within 0.01 s\n"}));
}

TEST_F(DatabaseWatch, EndsWithStatusZeroAtCtrlC) {
    auto watch = logctl.start({"watch"});
    ASSERT_TRUE(watch.wait_for_error(watching));
    watch.kill(SIGINT);
    EXPECT_EQ(watch.finish(), (Outcome{0, "", watching}));
}

TEST(Watch, OfNoDatabaseIsAFailure) {
    Logctl const logctl;
    EXPECT_EQ(logctl({"watch"}), refused(logctl.database.string() + ": no configuration database is there"));
}

} // namespace
} // namespace xpon::logctl
