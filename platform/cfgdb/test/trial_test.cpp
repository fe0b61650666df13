#include "xpon/cfgdb/trial.hpp"

#include <gmock/gmock.h>

#include "support.hpp"
#include "xpon/cfgdb/change_feed.hpp"

namespace xpon::cfgdb {
namespace {

using core::Error;
using test::IsError;
using test::IsOk;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class Trials : public DatabaseFolder {
  protected:
    void SetUp() override { change(folder, {{"syslog.rsh.level", "info"}}); }

    core::Result<std::vector<Change>> on_trial(std::string const& path, std::string const& value) const {
        Transaction transaction;
        EXPECT_THAT(transaction.set(path, value), IsOk());
        return commit_trial(transaction, BootInstant::in(60), folder, "admin");
    }
};

TEST_F(Trials, ArePendingUntilTheyAreConfirmed) {
    EXPECT_EQ(pending_trial(folder).value(), std::nullopt);
    EXPECT_EQ(on_trial("syslog.rsh.level", "debug").value().size(), 1U);
    auto const trial = pending_trial(folder).value();
    ASSERT_TRUE(trial);
    EXPECT_EQ(trial->number, 2);
    EXPECT_EQ(trial->author, "admin");
    EXPECT_FALSE(trial->end.over());
    auto const feed = ChangeFeed::open(folder).value();
    EXPECT_EQ(confirm_trial(folder).value().number, 2);
    EXPECT_TRUE(test::wait_readable(feed->fd()));
    EXPECT_EQ(pending_trial(folder).value(), std::nullopt);
    EXPECT_THAT(undo_trial(2, folder).value(), IsEmpty());
    EXPECT_THAT(stored(), ElementsAre("syslog.rsh.level=debug"));
    EXPECT_THAT(confirm_trial(folder), IsError(Error::Empty, "nothing waits for a confirmation"));
}

TEST_F(Trials, AreUndoneButForWhatOthersHaveChangedSince) {
    EXPECT_EQ(on_trial("syslog.*.level", "debug").value().size(), 5U);
    change(folder, {{"syslog.kernel.level", "critical"}, {"module.snmp.TRAP", "error"}});
    EXPECT_THAT(undo_trial(1, folder).value(), IsEmpty()); // another than the pending one
    EXPECT_EQ(undo_trial(2, folder, "timer").value().size(), 4U);
    EXPECT_THAT(stored(), ElementsAre("module.snmp.TRAP=error", "syslog.kernel.level=critical",
                                      "syslog.rsh.level=info"));
    EXPECT_EQ(pending_trial(folder).value(), std::nullopt);
}

TEST_F(Trials, OfWhichNothingIsLeftAreForgotten) {
    EXPECT_THAT(on_trial("syslog.rsh.level", "debug"), IsOk());
    change(folder, {{"syslog.rsh.level", "critical"}});
    EXPECT_THAT(undo_trial(2, folder).value(), IsEmpty());
    EXPECT_EQ(pending_trial(folder).value(), std::nullopt);
    EXPECT_THAT(stored(), ElementsAre("syslog.rsh.level=critical"));
}

TEST_F(Trials, ComeOneAfterTheOther) {
    EXPECT_THAT(on_trial("syslog.rsh.level", "debug"), IsOk());
    EXPECT_THAT(on_trial("syslog.kernel.level", "debug"),
                IsError(Error::Already, "transaction 2 of admin waits for its confirmation"));
    EXPECT_THAT(stored(), ElementsAre("syslog.rsh.level=debug"));
}

TEST_F(Trials, ThatChangeNothingAreNone) {
    EXPECT_THAT(on_trial("syslog.rsh.level", "info").value(), IsEmpty());
    EXPECT_EQ(pending_trial(folder).value(), std::nullopt);
}

TEST_F(Trials, WorkOnADatabaseThatHasNoTableForThem) {
    RawDatabase{file}.run("DROP TABLE trial");
    EXPECT_EQ(pending_trial(folder).value(), std::nullopt);
    EXPECT_THAT(on_trial("syslog.rsh.level", "debug"), IsOk());
    EXPECT_TRUE(pending_trial(folder).value());
}

TEST(BootInstants, AreOverWhenReachedAndAfterAReboot) {
    EXPECT_FALSE(BootInstant::in(60).over());
    EXPECT_TRUE(BootInstant::in(0).over());
    auto const now = BootInstant::in(60);
    EXPECT_TRUE((BootInstant{"another", now.seconds}.over()));
    EXPECT_FALSE((BootInstant{"", now.seconds}.over())); // nobody knows of which boot
    EXPECT_TRUE((BootInstant{"", 0}.over()));
}

} // namespace
} // namespace xpon::cfgdb
