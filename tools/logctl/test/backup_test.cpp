// backup and restore. What a copy is checked for is tested with the library.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logctl.hpp"

namespace xpon::logctl {
namespace {

class Backup : public testing::Test {
  protected:
    Logctl logctl;
    std::string copy = logctl.scratch / "copy.db";
};

TEST_F(Backup, IsPutBackWithItsHistory) {
    EXPECT_EQ(logctl({"set", "syslog.rsh.level=debug", "module.snmp.TRAP=error"}), silence);
    auto const exported = logctl({"export"});
    auto const history = logctl({"history"});
    EXPECT_EQ(logctl({"backup", copy}), silence);
    EXPECT_EQ(logctl({"set", "syslog.rsh.level=critical", "syslog.kernel.level=debug"}), silence);
    EXPECT_EQ(logctl({"restore", copy}), silence);
    EXPECT_EQ(logctl({"export"}), exported);
    EXPECT_EQ(logctl({"history"}), history);
}

TEST_F(Backup, ThatIsInvalidChangesNothingAndIsNamedWithTheReason) {
    EXPECT_EQ(logctl({"set", "syslog.rsh.level=debug"}), silence);
    EXPECT_EQ(logctl({"backup", copy}), silence);
    Logctl::sql("UPDATE setting SET value = 9", copy);
    auto const exported = logctl({"export"});
    EXPECT_EQ(
        logctl({"restore", copy}),
        refused(copy +
                ": syslog.rsh.level: 9 is stored, but it must be critical, error, warning, notice, info "
                "or debug (0 to 5)"));
    EXPECT_EQ(logctl({"restore", "/no/such"}),
              refused("/no/such: cannot be opened (No such file or directory)"));
    EXPECT_EQ(logctl({"export"}), exported);
}

TEST_F(Backup, IsSeenByAWatchThatRuns) {
    EXPECT_EQ(logctl({"set", "syslog.rsh.level=debug"}), silence);
    EXPECT_EQ(logctl({"backup", copy}), silence);
    EXPECT_EQ(logctl({"set", "syslog.rsh.level=error"}), silence);
    auto watch = logctl.start({"watch", "--count", "1"});
    ASSERT_TRUE(watch.wait_for_error("watching"));
    EXPECT_EQ(logctl({"restore", copy}), silence);
    ASSERT_TRUE(watch.wait_for_error("the database was replaced: its newest transaction is 1, not 2"));
    EXPECT_EQ(logctl({"set", "syslog.rsh.level=info"}), silence);
    EXPECT_THAT(watch.finish().out, testing::HasSubstr("changed syslog.rsh.level: debug -> info"));
}

} // namespace
} // namespace xpon::logctl
