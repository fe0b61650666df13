#include "xpon/cfgdb/change_feed.hpp"

#include <csignal>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "readers.hpp"
#include "support.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"

namespace xpon::cfgdb {
namespace {

using core::Error;
using test::IsError;
using test::IsOk;
using test::ScratchFolder;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// "field:sequence" of every change.
std::vector<std::string> next(ChangeFeed& feed) {
    auto const changes = feed.next();
    EXPECT_THAT(changes, IsOk());
    std::vector<std::string> texts;
    for (auto const& change : changes.value()) {
        EXPECT_EQ(change.row, 0U);
        texts.push_back(fmt::format("{}:{}", change.field_id, change.sequence));
    }
    return texts;
}

/// Every field identifier there is, all under one sequence.
std::vector<std::string> every_field(int sequence) {
    std::vector<std::string> all;
    for (int const field :
         {52, 53, 54, 55, 56, 58, 59, 60, 61, 62, 64, 65, 66, 68, 69, 71, 73, 78, 67, 79, 63, 77, 76}) {
        all.push_back(fmt::format("{}:{}", field, sequence));
    }
    return all;
}

class Feed : public testing::Test {
  protected:
    ScratchFolder scratch;
    std::filesystem::path folder = scratch / "db";
    std::filesystem::path doorbell = folder / "running.db.doorbell";
    std::optional<CfgDbWrapper> cfgdb{std::in_place, "TEST_CFGDB", folder};
    std::unique_ptr<ChangeFeed> feed = ChangeFeed::take();

    void change_level(std::string const& level) const { change(folder, {{"syslog.rsh.level", level}}); }
};

TEST_F(Feed, IsTakenOnceAndReplacedByTheNewestWrappers) {
    EXPECT_NE(feed, nullptr);
    EXPECT_EQ(ChangeFeed::take(), nullptr);
    ScratchFolder const other;
    CfgDbWrapper const first{"TEST_CFGDB", folder};
    CfgDbWrapper const second{"TEST_CFGDB", other / "db"};
    auto const newest = ChangeFeed::take();
    change_level("debug");
    EXPECT_THAT(next(*newest), IsEmpty());
    change(other / "db", {{"syslog.file.level", "debug"}});
    EXPECT_THAT(next(*newest), ElementsAre("52:1"));
    EXPECT_EQ(ChangeFeed::take(), nullptr);
}

TEST_F(Feed, WithoutChangesIsEmptyAndNotReadable) {
    EXPECT_FALSE(is_readable(feed->fd()));
    EXPECT_THAT(next(*feed), IsEmpty());
    EXPECT_FALSE(is_readable(feed->fd()));
}

TEST_F(Feed, HandsOutAChangeOnce) {
    change_level("debug");
    EXPECT_TRUE(is_readable(feed->fd()));
    EXPECT_THAT(next(*feed), ElementsAre("56:1"));
    EXPECT_FALSE(is_readable(feed->fd()));
    EXPECT_THAT(next(*feed), IsEmpty());
}

TEST_F(Feed, PiledUpChangesComeAsOneListOldestFirstEachFieldOnce) {
    change(folder, {{"syslog.console.level", "debug"}});
    change(folder, {{"module.dna.SELF", "debug"}, {"module.arp.SELF", "debug"}});
    change(folder, {{"syslog.console.level", "info"}});
    change(folder, {{"syslog.file.level", "debug"}, {"module.dna.IPC", "debug"}});
    EXPECT_THAT(next(*feed), ElementsAre("53:1", "59:2", "63:3", "52:5"));
    change(folder, {{"syslog.console.level", "debug"}});
    EXPECT_THAT(next(*feed), ElementsAre("53:7"));
}

TEST_F(Feed, IsNotWokenByATransactionThatChangesNothing) {
    change_level("notice");
    Transaction transaction;
    EXPECT_THAT(transaction.set("syslog.rsh.level", "debug"), IsOk());
    EXPECT_THAT(transaction.preview(folder), IsOk());
    EXPECT_FALSE(is_readable(feed->fd()));
}

TEST_F(Feed, DeliversWhatWasCommittedBetweenOpeningAndTaking) {
    CfgDbWrapper const again{"TEST_CFGDB", folder};
    change_level("debug");
    auto const taken = ChangeFeed::take();
    EXPECT_TRUE(is_readable(taken->fd()));
    EXPECT_THAT(next(*taken), ElementsAre("56:1"));
}

TEST_F(Feed, DoesNotDeliverWhatWasCommittedBeforeOpening) {
    change_level("debug");
    CfgDbWrapper const again{"TEST_CFGDB", folder};
    auto const later = ChangeFeed::take();
    EXPECT_FALSE(is_readable(later->fd()));
    EXPECT_THAT(next(*later), IsEmpty());
    change_level("info");
    EXPECT_THAT(next(*later), ElementsAre("56:2"));
}

TEST_F(Feed, OutlivesItsWrapper) {
    cfgdb.reset();
    change_level("debug");
    EXPECT_TRUE(is_readable(feed->fd()));
    EXPECT_THAT(next(*feed), ElementsAre("56:1"));
}

TEST_F(Feed, TheIdentifiersOfEveryStoredRecordAreAnnounced) {
    change(folder, {{"module.*.SELF", "debug"}, {"syslog.*.level", "critical"}});
    std::vector<std::string> fields;
    for (auto const& text : next(*feed)) {
        fields.push_back(text.substr(0, text.find(':')));
    }
    EXPECT_EQ(fields, (std::vector<std::string>{"52", "53", "54", "55", "56", "58", "59", "60",
                                                "61", "62", "64", "65", "66", "68", "69", "71",
                                                "73", "78", "67", "79", "63", "77", "76"}));
}

// --- a journal that no longer reaches back
// --------------------------------------------------------------------

TEST_F(Feed, ThatFellBehindAPrunedJournalHandsOutEveryField) {
    RawDatabase const raw{folder / "running.db"};
    change_level("debug");
    change_level("info");
    change_level("error");
    raw.run("DELETE FROM journal WHERE sequence <= 2");
    EXPECT_EQ(next(*feed), every_field(3));
    change_level("debug");
    EXPECT_THAT(next(*feed), ElementsAre("56:4"));
    change_level("info");
    change_level("error");
    raw.run("DELETE FROM journal WHERE sequence <= 5");
    EXPECT_EQ(next(*feed), every_field(6));
    EXPECT_THAT(next(*feed), IsEmpty());
}

TEST_F(Feed, WhoseJournalWasEmptiedHandsOutEveryFieldOnce) {
    RawDatabase const raw{folder / "running.db"};
    change_level("debug");
    EXPECT_THAT(next(*feed), ElementsAre("56:1"));
    raw.run("DELETE FROM journal");
    EXPECT_EQ(next(*feed), every_field(0));
    EXPECT_THAT(next(*feed), IsEmpty());
}

TEST_F(Feed, SequencesAreTheLow32BitsOfTheJournalsNumbers) {
    RawDatabase const raw{folder / "running.db"};
    raw.run("INSERT INTO journal VALUES(4294967295, 1, 0)");
    CfgDbWrapper const again{"TEST_CFGDB", folder};
    auto const later = ChangeFeed::take();
    change_level("debug");
    change(folder, {{"syslog.file.level", "debug"}});
    EXPECT_THAT(next(*later), ElementsAre("56:0", "52:1"));
}

// --- errors
// ---------------------------------------------------------------------------------------------------

TEST_F(Feed, AnErrorKeepsThePosition) {
    change_level("debug");
    auto const file = folder / "running.db";
    std::filesystem::rename(file, folder / "elsewhere");
    EXPECT_THAT(feed->next(), IsError(Error::InvalidState, HasSubstr("removed or replaced")));
    EXPECT_THAT(feed->next(), IsError(Error::InvalidState, HasSubstr("removed or replaced")));
    std::filesystem::rename(folder / "elsewhere", file);
    EXPECT_THAT(next(*feed), ElementsAre("56:1"));
}

TEST_F(Feed, ADoorbellThatCannotBeWatchedIsAnErrorUntilItCan) {
    std::filesystem::rename(folder, scratch / "elsewhere");
    std::filesystem::remove(scratch / "elsewhere/running.db.doorbell");
    EXPECT_TRUE(is_readable(feed->fd()));
    EXPECT_THAT(feed->next(), IsError(Error::CommonError, HasSubstr(doorbell.string())));
    std::filesystem::rename(scratch / "elsewhere", folder);
    change_level("debug");
    EXPECT_THAT(next(*feed), ElementsAre("56:1"));
    change_level("info");
    EXPECT_TRUE(is_readable(feed->fd()));
}

// --- the doorbell
// ---------------------------------------------------------------------------------------------

TEST_F(Feed, HearsCommitsAfterItsDoorbellWasRemoved) {
    std::filesystem::remove(doorbell);
    EXPECT_TRUE(is_readable(feed->fd()));
    EXPECT_THAT(next(*feed), IsEmpty());
    change_level("debug");
    EXPECT_TRUE(is_readable(feed->fd()));
    EXPECT_THAT(next(*feed), ElementsAre("56:1"));
}

TEST_F(Feed, HearsACommitThatFollowsTheRemovalAtOnceAndTheOneAfterIt) {
    std::filesystem::remove(doorbell);
    change_level("debug");
    EXPECT_TRUE(is_readable(feed->fd()));
    EXPECT_THAT(next(*feed), ElementsAre("56:1"));
    change_level("info");
    EXPECT_TRUE(is_readable(feed->fd()));
    EXPECT_THAT(next(*feed), ElementsAre("56:2"));
}

TEST_F(Feed, HearsCommitsAfterItsDoorbellWasReplacedOrMovedAway) {
    test::write_file(folder / "new", "");
    std::filesystem::rename(folder / "new", doorbell);
    EXPECT_THAT(next(*feed), IsEmpty());
    change_level("debug");
    EXPECT_TRUE(is_readable(feed->fd()));
    EXPECT_THAT(next(*feed), ElementsAre("56:1"));

    std::filesystem::rename(doorbell, folder / "old");
    EXPECT_THAT(next(*feed), IsEmpty());
    change_level("info");
    EXPECT_TRUE(is_readable(feed->fd()));
    EXPECT_THAT(next(*feed), ElementsAre("56:2"));
}

// --- other processes
// ------------------------------------------------------------------------------------------

TEST(FeedAcrossProcesses, ACommitWakesAndIsVisibleAtOnceTwoHundredTimes) {
    ScratchFolder const scratch;
    auto const folder = scratch / "db";
    Signal commit;
    Child writer{[&] {
        for (int i = 0; commit.take(); ++i) {
            Transaction transaction;
            if (!transaction.set("syslog.rsh.level", i % 2 == 0 ? "debug" : "info") ||
                !transaction.commit(folder)) {
                return 1;
            }
        }
        return 0;
    }};
    CfgDbWrapper const cfgdb{"TEST_CFGDB", folder};
    auto const feed = ChangeFeed::take();
    for (int i = 1; i <= 200; ++i) {
        commit.give();
        ASSERT_TRUE(test::wait_readable(feed->fd())) << i;
        ASSERT_THAT(next(*feed), ElementsAre(fmt::format("56:{}", i)));
        SyslogRshDest rsh{};
        ASSERT_EQ(getRunDb_CommonGCfg_logging_syslog_rsh(cfgdb.db(), &rsh, all_zero_key), 0);
        ASSERT_EQ(rsh.level, i % 2 == 1 ? 5 : 4) << i;
    }
}

TEST(FeedAcrossProcesses, AWriterKilledRightAfterItsCommitStillWakes) {
    ScratchFolder const scratch;
    auto const folder = scratch / "db";
    Signal commit;
    Child writer{[&] {
        commit.take();
        RawDatabase const raw{folder / "running.db"};
        int const doorbell = open((folder / "running.db.doorbell").c_str(), O_WRONLY | O_CLOEXEC);
        raw.run("BEGIN IMMEDIATE; INSERT INTO setting VALUES('syslog.rsh.level', 5); "
                "INSERT INTO journal(field_id, at) VALUES(56, 0); COMMIT");
        return doorbell >= 0 && raise(SIGKILL) == 0 ? 0 : 1;
    }};
    CfgDbWrapper const cfgdb{"TEST_CFGDB", folder};
    auto const feed = ChangeFeed::take();
    commit.give();
    EXPECT_TRUE(test::wait_readable(feed->fd()));
    EXPECT_THAT(next(*feed), ElementsAre("56:1"));
    EXPECT_EQ(writer.status(), 128 + SIGKILL);
}

TEST(FeedAcrossProcesses, AWriterKilledBeforeItsCommitChangesNothing) {
    ScratchFolder const scratch;
    auto const folder = scratch / "db";
    Signal begin;
    Child writer{[&] {
        begin.take();
        RawDatabase const raw{folder / "running.db"};
        int const doorbell = open((folder / "running.db.doorbell").c_str(), O_WRONLY | O_CLOEXEC);
        raw.run("BEGIN IMMEDIATE; INSERT INTO setting VALUES('syslog.rsh.level', 5); "
                "INSERT INTO journal(field_id, at) VALUES(56, 0)");
        return doorbell >= 0 && raise(SIGKILL) == 0 ? 0 : 1;
    }};
    CfgDbWrapper const cfgdb{"TEST_CFGDB", folder};
    auto const feed = ChangeFeed::take();
    begin.give();
    EXPECT_TRUE(test::wait_readable(feed->fd()));
    EXPECT_EQ(writer.status(), 128 + SIGKILL);
    EXPECT_THAT(next(*feed), IsEmpty());
    EXPECT_THAT(change(folder, {{"syslog.rsh.level", "debug"}}),
                ElementsAre("syslog.rsh.level: notice -> debug"));
}

} // namespace
} // namespace xpon::cfgdb
