#include "xpon/cfgdb/change_feed.hpp"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "readers.hpp"
#include "support.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"
#include "xpon/cfgdb/history.hpp"

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

constexpr std::uint32_t all_fields[] = {52, 53, 54, 55, 56, 58, 59, 60, 61, 62, 64, 65,
                                        66, 68, 69, 71, 73, 78, 67, 79, 63, 77, 76};

/// Every field, all under one sequence.
std::vector<std::string> every_field(int sequence) {
    std::vector<std::string> all;
    for (auto const field : all_fields) {
        all.push_back(fmt::format("{}:{}", field, sequence));
    }
    return all;
}

class Feed : public DatabaseFolder {
  protected:
    std::filesystem::path doorbell = folder / "running.db.doorbell";
    std::optional<CfgDbWrapper> cfgdb{std::in_place, "TEST_CFGDB", folder};
    std::unique_ptr<ChangeFeed> feed = ChangeFeed::take();

    void change_level(std::string const& level) const { change(folder, {{"syslog.rsh.level", level}}); }

    /// What the feed hands out, which must be readable.
    std::vector<std::string> heard() const {
        EXPECT_TRUE(is_readable(feed->fd()));
        return next(*feed);
    }

    /// -1 if it cannot be read.
    int rsh_level() const {
        CapturedSyslog const syslog;
        return cfgdb::rsh_level(*cfgdb);
    }

    /// A copy as of now, without a log.
    void copy_as_one_file(std::filesystem::path const& to) const {
        RawDatabase{file}.run("VACUUM INTO '" + to.string() + "'");
        RawDatabase{to}.run("PRAGMA journal_mode = DELETE");
    }

    std::string restore_command(std::filesystem::path const& from) const {
        return fmt::format("sqlite3 '{}' '.restore {}'", file.string(), from.string());
    }

    /// Replaces what the file holds, and not the file.
    void overwrite(std::string const& bytes) const {
        std::fstream{file, std::ios::in | std::ios::out | std::ios::binary} << bytes;
        std::filesystem::resize_file(file, bytes.size());
    }
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
    EXPECT_THAT(heard(), ElementsAre("56:1"));
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

TEST_F(Feed, HandsOutAgainWhatIsToBeDeliveredAgain) {
    auto const transaction =
        wish({{"module.dna.*", "debug"}, {"syslog.file.level", "notice"}, {"syslog.file.size", "70000"}});
    EXPECT_THAT(transaction.fields(), ElementsAre(file_field, 59U));
    auto const before = stored();
    EXPECT_THAT(deliver_again(transaction.fields(), folder), IsOk());
    EXPECT_THAT(heard(), ElementsAre("52:1", "59:2"));
    EXPECT_EQ(stored(), before);
    EXPECT_THAT(history(folder).value(), IsEmpty());
    EXPECT_THAT(deliver_again({}, folder), IsOk());
    EXPECT_THAT(next(*feed), IsEmpty());
}

TEST_F(Feed, IsNotWokenByATransactionThatChangesNothing) {
    change_level("notice");
    auto transaction = wish({{"syslog.rsh.level", "debug"}});
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
    EXPECT_THAT(heard(), ElementsAre("56:1"));
}

TEST_F(Feed, TheIdentifiersOfEveryStoredRecordAreAnnounced) {
    change(folder, {{"module.*.SELF", "debug"}, {"syslog.*.level", "critical"}});
    auto const changes = feed->next().value();
    EXPECT_TRUE(std::ranges::equal(changes, all_fields, {}, &Config_change::field_id));
}

// --- a journal that no longer reaches back

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

TEST_F(Feed, AnErrorKeepsThePosition) {
    change_level("debug");
    // The log is empty then, and what is in the file counts.
    EXPECT_EQ(RawDatabase{file}.value("PRAGMA wal_checkpoint(TRUNCATE)"), "0|0|0");
    auto const whole = test::read_file(file);
    auto const page =
        std::stoul(RawDatabase{file}.value("SELECT rootpage FROM sqlite_schema WHERE name = 'journal'"));
    auto damaged = whole;
    overwrite(damaged.replace((page - 1) * 4096, 4096, 4096, '\xFF'));
    EXPECT_THAT(feed->next(), IsError(Error::CommonError, HasSubstr("malformed")));
    EXPECT_THAT(feed->next(), IsError(Error::CommonError, HasSubstr("malformed")));
    overwrite(whole);
    EXPECT_THAT(next(*feed), ElementsAre("56:1"));
}

TEST_F(Feed, AFolderThatCannotBeWatchedIsAnErrorUntilItCan) {
    std::filesystem::rename(folder, scratch / "elsewhere");
    EXPECT_TRUE(is_readable(feed->fd()));
    EXPECT_THAT(feed->next(), IsError(Error::CommonError,
                                      folder.string() + ": cannot be watched (No such file or directory)"));
    std::filesystem::rename(scratch / "elsewhere", folder);
    change_level("debug");
    EXPECT_THAT(next(*feed), ElementsAre("56:1"));
    change_level("info");
    EXPECT_TRUE(is_readable(feed->fd()));
}

// --- another database in its place

TEST_F(Feed, WhoseDatabaseWasReplacedHandsOutEveryFieldAndFollowsTheNewOne) {
    change_level("debug");
    EXPECT_THAT(next(*feed), ElementsAre("56:1"));
    copy_as_one_file(scratch / "copy"); // the journal of the copy goes on as the old one would
    std::filesystem::rename(scratch / "copy", file);
    EXPECT_GT(std::filesystem::file_size(folder / "running.db-wal"), 0U) << "the old one's log, still there";
    EXPECT_EQ(heard(), every_field(1));
    EXPECT_THAT(next(*feed), IsEmpty());
    EXPECT_EQ(RawDatabase{file}.value("PRAGMA integrity_check"), "ok");
    change_level("error");
    EXPECT_THAT(heard(), ElementsAre("56:2"));
    EXPECT_EQ(rsh_level(), 1);
}

TEST_F(Feed, WhoseDatabaseIsAwayForAMomentSaysSoAndStartsOver) {
    change_level("debug");
    std::filesystem::rename(file, folder / "elsewhere");
    for (int i = 0; i < 2; ++i) {
        EXPECT_THAT(feed->next(), IsError(Error::CommonError,
                                          file.string() + ": cannot be opened (No such file or directory)"));
        EXPECT_EQ(rsh_level(), -1);
    }
    EXPECT_FALSE(is_readable(feed->fd()));
    EXPECT_FALSE(std::filesystem::exists(file)) << "it is not made again: somebody is copying just then";
    std::filesystem::rename(folder / "elsewhere", file);
    EXPECT_EQ(heard(), every_field(1));
    EXPECT_EQ(rsh_level(), 5);
}

TEST_F(Feed, WhoseDatabaseWasRemovedAndPutBackFromACopyReadsTheCopyWithoutTheOldLog) {
    change_level("debug");
    copy_as_one_file(scratch / "copy");
    change_level("error");
    change(folder, {{"module.fsm_pon.*", "debug"}});
    EXPECT_THAT(next(*feed), testing::SizeIs(2));
    std::filesystem::remove(file);
    EXPECT_THAT(feed->next(), IsError(Error::CommonError, HasSubstr("cannot be opened")));
    EXPECT_GT(std::filesystem::file_size(folder / "running.db-wal"), 0U) << "the old one's log, still there";
    std::filesystem::copy_file(scratch / "copy", file); // might get the number of the old one
    EXPECT_EQ(next(*feed), every_field(1));
    EXPECT_EQ(rsh_level(), 5);
    EXPECT_EQ(RawDatabase{file}.value("PRAGMA integrity_check"), "ok");
    EXPECT_EQ(RawDatabase{file}.value("SELECT count(*) FROM setting"), "1");
}

TEST_F(Feed, WhoseLogOrIndexWasRemovedStartsOverAndFollows) {
    for (std::vector<char const*> const& names :
         {std::vector{"running.db-wal", "running.db-shm"}, {"running.db-wal"}, {"running.db-shm"}}) {
        EXPECT_EQ(RawDatabase{file}.value("PRAGMA wal_checkpoint(TRUNCATE)"), "0|0|0");
        for (auto const* name : names) {
            ASSERT_TRUE(std::filesystem::remove(folder / name));
        }
        EXPECT_THAT(heard(), testing::SizeIs(23));
        next(*feed); // of what it made itself
        change_level("debug");
        EXPECT_THAT(heard(), testing::SizeIs(1));
        EXPECT_EQ(rsh_level(), 5);
        change_level("notice");
        EXPECT_THAT(next(*feed), testing::SizeIs(1));
        EXPECT_EQ(rsh_level(), 3);
    }
    EXPECT_EQ(RawDatabase{file}.value("PRAGMA integrity_check"), "ok");
}

TEST_F(Feed, HearsARestoreByOtherProgramsAndHandsOutEveryField) {
    change_level("debug");
    copy_as_one_file(scratch / "copy");
    change_level("error");
    next(*feed);
    EXPECT_THAT(next(*feed), IsEmpty());
    EXPECT_FALSE(is_readable(feed->fd()));
    EXPECT_EQ(std::system(restore_command(scratch / "copy").c_str()), 0);
    EXPECT_TRUE(is_readable(feed->fd())) << "it rings no doorbell";
    EXPECT_EQ(next(*feed), every_field(1));
    EXPECT_EQ(rsh_level(), 5);
    change_level("info");
    EXPECT_THAT(next(*feed), ElementsAre("56:2"));
}

TEST_F(Feed, ARestoreFollowedByAChangeBeforeItIsHeardLosesNothing) {
    copy_as_one_file(scratch / "copy");
    change_level("debug");
    EXPECT_THAT(next(*feed), ElementsAre("56:1"));
    EXPECT_EQ(std::system(restore_command(scratch / "copy").c_str()), 0);
    change(folder, {{"syslog.file.level", "debug"}}); // has the number of the lost one
    EXPECT_EQ(next(*feed), every_field(1));
}

TEST_F(Feed, ACopyWrittenOverTheFileIsReadFromTheFile) {
    change_level("debug");
    EXPECT_THAT(next(*feed), ElementsAre("56:1"));
    copy_as_one_file(scratch / "copy");
    change_level("error");
    EXPECT_THAT(next(*feed), ElementsAre("56:2"));
    EXPECT_EQ(RawDatabase{file}.value("PRAGMA wal_checkpoint(TRUNCATE)"), "0|0|0");
    overwrite(test::read_file(scratch / "copy"));
    EXPECT_EQ(heard(), every_field(1));
    EXPECT_EQ(rsh_level(), 5);
}

TEST_F(Feed, IsNotWokenByReaders) {
    next(*feed);
    for (int i = 0; i < 3; ++i) {
        EXPECT_THAT(stored_settings(folder), IsOk());
    }
    EXPECT_FALSE(is_readable(feed->fd()));
}

TEST_F(Feed, OfADatabaseThatIsReplacedByAViewSaysSoAtOnce) {
    // Another process, so that it closes the file.
    auto const sql = "DROP TABLE setting; CREATE VIEW setting AS WITH RECURSIVE e(n) AS (SELECT 1 UNION ALL "
                     "SELECT n FROM e) SELECT 'x' AS path, n AS value FROM e";
    EXPECT_EQ(std::system(fmt::format("sqlite3 '{}' \"{}\"", file.string(), sql).c_str()), 0);
    EXPECT_TRUE(is_readable(feed->fd()));
    EXPECT_THAT(feed->next(), IsError(Error::InvalidState, HasSubstr("holds the view \"setting\"")));
}

// --- the doorbell

TEST_F(Feed, HearsCommitsAfterItsDoorbellWasRemoved) {
    std::filesystem::remove(doorbell);
    EXPECT_THAT(heard(), IsEmpty());
    change_level("debug");
    EXPECT_THAT(heard(), ElementsAre("56:1"));
}

TEST_F(Feed, HearsACommitThatFollowsTheRemovalAtOnceAndTheOneAfterIt) {
    std::filesystem::remove(doorbell);
    change_level("debug");
    EXPECT_THAT(heard(), ElementsAre("56:1"));
    change_level("info");
    EXPECT_THAT(heard(), ElementsAre("56:2"));
}

TEST_F(Feed, HearsCommitsAfterItsDoorbellWasReplacedOrMovedAway) {
    test::write_file(folder / "new", "");
    std::filesystem::rename(folder / "new", doorbell);
    EXPECT_THAT(next(*feed), IsEmpty());
    change_level("debug");
    EXPECT_THAT(heard(), ElementsAre("56:1"));

    std::filesystem::rename(doorbell, folder / "old");
    EXPECT_THAT(next(*feed), IsEmpty());
    change_level("info");
    EXPECT_THAT(heard(), ElementsAre("56:2"));
}

// --- other processes

TEST(FeedAcrossProcesses, ACommitWakesAndIsVisibleAtOnceTwoHundredTimes) {
    ScratchFolder const scratch;
    auto const folder = scratch / "db";
    Signal commit;
    Child writer{[&] {
        if (!commit.take()) {
            return 1;
        }
        // While this is open nobody closes the file, so that a doorbell is all that wakes.
        RawDatabase const held{folder / "running.db"};
        held.value("SELECT count(*) FROM setting");
        for (int i = 0; i == 0 || commit.take(); ++i) {
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
        ASSERT_EQ(rsh_level(cfgdb), i % 2 == 1 ? 5 : 4) << i;
    }
}

TEST(FeedAcrossProcesses, AWriterKilledRightAfterOrBeforeItsCommitWakes) {
    for (bool const commits : {true, false}) {
        ScratchFolder const scratch;
        auto const folder = scratch / "db";
        Signal begin;
        Child writer{[&] {
            begin.take();
            RawDatabase const raw{folder / "running.db"};
            int const doorbell = open((folder / "running.db.doorbell").c_str(), O_WRONLY | O_CLOEXEC);
            raw.run("BEGIN IMMEDIATE; INSERT INTO setting VALUES('syslog.rsh.level', 5); INSERT INTO "
                    "journal(field_id, at) VALUES(56, 0)");
            raw.run(commits ? "COMMIT" : "");
            return doorbell >= 0 && raise(SIGKILL) == 0 ? 0 : 1;
        }};
        CfgDbWrapper const cfgdb{"TEST_CFGDB", folder};
        auto const feed = ChangeFeed::take();
        begin.give();
        EXPECT_TRUE(test::wait_readable(feed->fd()));
        EXPECT_EQ(writer.status(), 128 + SIGKILL);
        auto const expected = commits ? std::vector<std::string>{"56:1"} : std::vector<std::string>{};
        EXPECT_EQ(next(*feed), expected);
        auto const before = commits ? "debug" : "notice";
        EXPECT_THAT(change(folder, {{"syslog.rsh.level", "info"}}),
                    ElementsAre(fmt::format("syslog.rsh.level: {} -> info", before)));
    }
}

TEST_F(Feed, HearsItsFolderComeBack) {
    ScratchFolder const scratch;
    auto const folder = scratch / "a/b/db";
    change(folder, {{"syslog.rsh.level", "debug"}});
    auto const feed = ChangeFeed::open(folder).value();
    std::filesystem::remove_all(scratch / "a");
    EXPECT_TRUE(is_readable(feed->fd()));
    EXPECT_THAT(feed->next(), IsError(Error::CommonError, HasSubstr("cannot be watched")));
    EXPECT_FALSE(is_readable(feed->fd()));
    std::filesystem::create_directory(scratch / "a");
    EXPECT_TRUE(is_readable(feed->fd()));
    EXPECT_TRUE(feed->next().has_error());
    change(folder, {{"syslog.rsh.level", "info"}});
    EXPECT_TRUE(is_readable(feed->fd()));
    EXPECT_THAT(feed->next().value(), testing::SizeIs(23));
}

} // namespace
} // namespace xpon::cfgdb
