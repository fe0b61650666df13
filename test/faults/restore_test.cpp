// Databases that are put in the place of the one that a running daemon follows, by logctl and by hand.
#include "integration/followed_board.hpp"
#include "kit/raw_database.hpp"
#include "kit/report.hpp"
#include "xpon/cfgdb/backup.hpp"
#include "xpon/cfgdb/change_feed.hpp"

namespace xpon::test {
namespace {

class Restore : public FollowedBoard {
  protected:
    /// A board in step, and a copy of its database from before its newest change.
    void SetUp() override {
        start_serving();
        set(a_change_of_every_output("debug"));
        expect_in_step();
        ASSERT_THAT(cfgdb::backup(copy, database), IsOk());
        set(a_change_of_every_output("error"));
        expect_in_step();
        // What the comparison has left open would keep its files in use here.
        std::ignore = cfgdb::ChangeFeed::take();
    }

    /// The level that the change above is of.
    static std::string stored_level() {
        return std::to_string(
            RawDatabase{file}.number("SELECT value FROM setting WHERE path = 'syslog.file.level'"));
    }

    /// Every output is what the database says now, and follows a further change, all by the one daemon.
    void expect_followed(char const* what, char const* how) {
        expect_in_step();
        set(a_change_of_every_output("info"));
        expect_in_step();
        expect_one_life();
        report(fmt::format("{}\t{}\tnothing; no output is delayed", what, how));
    }

    int logctl(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), XPON_LOGCTL);
        ChildProcess run{{.argv = arguments, .environment = {}, .output = scratch / "logctl"}};
        return run.wait().value_or(-1);
    }

    /// SQLite's own program, which neither checks anything nor rings a doorbell.
    void sqlite3(std::string const& command) {
        ChildProcess run{
            {.argv = {"sqlite3", file, command}, .environment = {}, .output = scratch / "sqlite3"}};
        EXPECT_EQ(run.wait(), 0) << read_file(scratch / "sqlite3");
    }

    static inline std::string const file = std::string{database} + "/running.db";
    std::filesystem::path copy = scratch / "copy.db";
};

TEST_F(Restore, ByLogctlIsFollowedAtOnce) {
    EXPECT_EQ(logctl({"restore", copy}), 0);
    EXPECT_EQ(stored_level(), "5");
    expect_followed("a copy put back by logctl restore", "while the daemon runs");
}

TEST_F(Restore, OfAnInvalidCopyChangesNothing) {
    RawDatabase{copy}.run("UPDATE setting SET value = 9 WHERE path = 'syslog.file.level'");
    EXPECT_EQ(logctl({"restore", copy}), 1);
    EXPECT_EQ(stored_level(), "1");
    expect_followed("a copy with a value that is not allowed", "refused by logctl restore");
}

TEST_F(Restore, ByOtherProgramsIsFollowedAtOnce) {
    sqlite3(".restore " + copy.string());
    EXPECT_EQ(stored_level(), "5");
    expect_followed("a copy put back by another program", "by .restore of sqlite3, without a doorbell");
}

TEST_F(Restore, ByOtherProgramsAndOneChangeAreFollowed) {
    daemon->process.kill(SIGSTOP);
    sqlite3(".restore " + copy.string());
    set({{"module.snmp.TRAP", "critical"}});
    daemon->process.kill(SIGCONT);
    EXPECT_EQ(stored_level(), "5");
    expect_followed("a copy put back by another program, then a change",
                    "both while the daemon stands still");
}

TEST_F(Restore, ByMovingACopyIntoItsPlaceIsFollowedAtOnce) {
    std::filesystem::copy_file(copy, file + ".new"); // on the same disk
    std::filesystem::rename(file + ".new", file);
    // The daemon removes the old one's log, which must not be read as that of the copy.
    EXPECT_TRUE(wait_until([&] {
        std::error_code none;
        return std::filesystem::file_size(file + "-wal", none) == 0;
    }));
    EXPECT_EQ(stored_level(), "5");
    expect_followed("a copy moved into the database's place", "renamed, its log left there");
}

TEST_F(Restore, ALogAndIndexThatAreRemovedAreFound) {
    std::filesystem::remove(file + "-wal");
    std::filesystem::remove(file + "-shm");
    EXPECT_TRUE(wait_until(
        [&] { return std::filesystem::exists(file + "-wal") && std::filesystem::exists(file + "-shm"); }));
    expect_followed("the database's log and index removed", "both files, while the daemon runs");
}

constexpr char const* endless_view =
    "DROP TABLE setting; CREATE VIEW setting AS WITH RECURSIVE e(n) AS "
    "(SELECT 1 UNION ALL SELECT n + 1 FROM e) SELECT 'x' || n AS path, n AS value FROM e";

TEST_F(Restore, AnEndlessViewIsReportedAndReplaced) {
    sqlite3(endless_view);
    EXPECT_TRUE(wait_for_text(log_file, "holds the view \"setting\""));
    EXPECT_EQ(logctl({"show"}), 1);
    EXPECT_EQ(logctl({"restore", copy}), 0);
    expect_followed("an endless view in the settings' place",
                    "made by another program while the daemon runs; a copy is put back");
}

TEST_F(Restore, AnEndlessViewDelaysNoStop) {
    sqlite3(endless_view);
    EXPECT_TRUE(wait_for_text(log_file, "holds the view \"setting\""));
    EXPECT_EQ(stop_daemon(), 0);
    // For the tests that follow.
    EXPECT_THAT(cfgdb::restore(copy, database), IsOk());
    set(a_change_of_every_output("info"));
}

} // namespace
} // namespace xpon::test
