#include "xpon/cfgdb/backup.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/names_in.hpp"
#include "support.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"
#include "xpon/cfgdb/change_feed.hpp"
#include "xpon/cfgdb/syslog_settings.hpp"

namespace xpon::cfgdb {
namespace {

using core::Error;
using test::IsError;
using test::IsOk;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::UnorderedElementsAre;

class Backup : public DatabaseFolder {
  protected:
    void SetUp() override {
        change(folder, {{"syslog.rsh.level", "debug"}, {"syslog.remote.1.address", "10.0.0.1"}});
        ASSERT_THAT(backup(copy, folder), IsOk());
        change(folder, {{"syslog.rsh.level", "critical"}, {"module.snmp.TRAP", "error"}});
    }

    /// Refuses the copy, leaves the database alone and wakes nobody.
    void expect_refused(Error code, std::string const& reason) const {
        auto const before = stored();
        auto const feed = ChangeFeed::open(folder).value();
        EXPECT_THAT(restore(copy, folder), IsError(code, copy.string() + ": " + reason));
        EXPECT_EQ(stored(), before);
        EXPECT_FALSE(is_readable(feed->fd()));
    }

    std::filesystem::path copy = scratch / "copy?#%41.db"; // a name that is none of a URI's words
};

TEST_F(Backup, IsOneFileThatCanBeReadWhereNothingCanBeWritten) {
    EXPECT_THAT(test::names_in(scratch.path()), UnorderedElementsAre("db", copy.filename().string()));
    EXPECT_EQ(mode_of(copy), 0600U);
    EXPECT_EQ(RawDatabase{copy}.value("PRAGMA journal_mode"), "delete");
    EXPECT_THAT(restore(copy, folder), IsOk());
    EXPECT_THAT(test::names_in(scratch.path()), UnorderedElementsAre("db", copy.filename().string()));
}

TEST_F(Backup, ReplacesAFileAndNothingElse) {
    test::write_file(scratch / "old", "x");
    EXPECT_THAT(backup(scratch / "old", folder), IsOk());
    EXPECT_EQ(RawDatabase{scratch / "old"}.value("SELECT count(*) FROM setting"), "3");
    EXPECT_THAT(backup(scratch.path(), folder),
                IsError(Error::InvalidInputArg, HasSubstr("not a regular file")));
    for (char const* name : {"running.db", "running.db-wal", "running.db-shm"}) {
        EXPECT_THAT(backup(folder / name, folder),
                    IsError(Error::InvalidInputArg, HasSubstr("the database itself")));
        EXPECT_THAT(restore(folder / name, folder),
                    IsError(Error::InvalidInputArg, HasSubstr("the database itself")));
    }
    EXPECT_THAT(backup(scratch / "no/such", folder),
                IsError(Error::CommonError, HasSubstr("cannot be made (No such")));
    EXPECT_THAT(stored(), SizeIs(3));
}

TEST_F(Backup, RestoresSettingsHistoryAndJournalAndWakesEveryFeed) {
    CfgDbWrapper const cfgdb{"TEST_CFGDB", folder};
    auto const feed = ChangeFeed::take();
    EXPECT_THAT(restore(copy, folder), IsOk());
    EXPECT_THAT(stored(), ElementsAre("syslog.remote.1.address=10.0.0.1", "syslog.rsh.level=debug"));
    EXPECT_TRUE(is_readable(feed->fd()));
    EXPECT_THAT(feed->next().value(), SizeIs(23));
    EXPECT_THAT(feed->next().value(), SizeIs(0));
    EXPECT_EQ(rsh_level(cfgdb), 5);
    RawDatabase const raw{file};
    EXPECT_EQ(raw.value("SELECT max(number) FROM history"), "1");
    EXPECT_EQ(raw.value("PRAGMA journal_mode"), "wal");
    change(folder, {{"syslog.rsh.level", "info"}});
    EXPECT_THAT(feed->next().value(), SizeIs(1));
}

TEST_F(Backup, OfUnchangedContentIsStillHandedOutWhole) {
    std::filesystem::remove(copy);
    ASSERT_THAT(backup(copy, folder), IsOk());
    auto const feed = ChangeFeed::open(folder).value();
    EXPECT_THAT(restore(copy, folder), IsOk()); // the same content: its journal cannot tell
    EXPECT_THAT(feed->next().value(), SizeIs(23));
}

TEST_F(Backup, CreatesTheDatabaseIfThereIsNone) {
    std::filesystem::remove_all(folder);
    EXPECT_THAT(restore(copy, folder), IsOk());
    EXPECT_THAT(stored(), SizeIs(2));
    EXPECT_TRUE(std::filesystem::exists(folder / "running.db.doorbell"));
}

TEST_F(Backup, RepairsAnUnusableDatabase) {
    RawDatabase{file}.run("DROP TABLE journal; CREATE VIEW journal AS SELECT 1");
    EXPECT_THAT(stored_settings(folder), IsError(Error::InvalidState, HasSubstr("the view \"journal\"")));
    EXPECT_THAT(restore(copy, folder), IsOk());
    EXPECT_THAT(stored(), SizeIs(2));
}

TEST_F(Backup, ReplacesADatabaseTooDamagedToBeWritten) {
    auto const whole = test::read_file(file);
    for (auto const& damaged : {std::string(8192, 'x'), std::string(100, '\0') + whole.substr(100),
                                whole.substr(0, 4096), std::string{}}) {
        auto const feed = ChangeFeed::open(folder).value();
        std::filesystem::remove(folder / "running.db-wal");
        std::filesystem::remove(folder / "running.db-shm");
        test::write_file(file, damaged);
        ASSERT_THAT(restore(copy, folder), IsOk()) << damaged.size();
        EXPECT_THAT(stored(), ElementsAre("syslog.remote.1.address=10.0.0.1", "syslog.rsh.level=debug"));
        EXPECT_TRUE(is_readable(feed->fd()));
        EXPECT_THAT(feed->next().value(), SizeIs(23));
        change(folder, {{"syslog.rsh.level", "info"}});
        EXPECT_THAT(feed->next().value(), Not(IsEmpty()));
        EXPECT_EQ(RawDatabase{file}.value("PRAGMA integrity_check"), "ok");
        EXPECT_EQ(mode_of(file), 0660U);
    }
}

TEST_F(Backup, IsRefusedIfOthersCanWriteToItsLogFolder) {
    RawDatabase{copy}.run("INSERT INTO setting VALUES('syslog.file.path', '/tmp/')");
    expect_refused(Error::InvalidState, "syslog.file.path: /tmp/ is not safe for the log file: "
                                        "users other than root can write to /tmp");
}

TEST_F(Backup, MadeFileByFileIsReadWithItsLog) {
    // Copied file by file while somebody has it open.
    RawDatabase const open{file};
    open.run("UPDATE setting SET value = 2 WHERE path = 'syslog.rsh.level'");
    std::filesystem::remove(copy);
    std::filesystem::copy_file(file, copy);
    std::filesystem::copy_file(folder / "running.db-wal", copy.string() + "-wal");
    open.run("UPDATE setting SET value = 1 WHERE path = 'syslog.rsh.level'");
    EXPECT_THAT(restore(copy, folder), IsOk());
    EXPECT_THAT(stored(), testing::Contains("syslog.rsh.level=warning"));
}

TEST_F(Backup, IsRefusedUnlessItIsAConfigurationDatabase) {
    std::filesystem::remove(copy);
    RawDatabase{copy}.run("CREATE TABLE setting(path, value)");
    expect_refused(Error::InvalidState, "not a configuration database (application id 0, not 1481657411)");
    test::write_file(copy, std::string(8192, 'x'));
    expect_refused(Error::CommonError, "file is not a database");
    test::write_file(copy, "");
    expect_refused(Error::InvalidState, "not a configuration database (application id 0, not 1481657411)");
    std::filesystem::remove(copy);
    expect_refused(Error::CommonError, "cannot be opened (No such file or directory)");
    std::filesystem::create_directory(copy);
    expect_refused(Error::InvalidInputArg, "not a regular file");
}

TEST_F(Backup, IsRefusedIfItIsOfAnotherSchema) {
    RawDatabase const raw{copy};
    raw.run("PRAGMA user_version = 2");
    expect_refused(Error::InvalidState, "its schema version is 2, this program knows version 1");
    raw.run("PRAGMA user_version = 1; DROP TABLE history");
    expect_refused(Error::CommonError, "no such table: history");
    raw.run("CREATE TRIGGER t AFTER INSERT ON setting BEGIN SELECT 1; END");
    expect_refused(
        Error::InvalidState,
        "holds the trigger \"t\"; a configuration database has only tables; restore it from a copy");
}

TEST_F(Backup, IsRefusedIfAValueIsNotAllowed) {
    RawDatabase const raw{copy};
    raw.run("INSERT INTO setting VALUES('module.of.another.release', 'x')"); // is left alone
    EXPECT_THAT(restore(copy, folder), IsOk());
    raw.run("INSERT INTO setting VALUES('syslog.file.path', '/a' || char(10) || '/')");
    expect_refused(
        Error::InvalidState,
        "syslog.file.path: \"/a\\x0a/\" is stored, but it must be an absolute path that ends in '/', at "
        "most 31 bytes of A-Z a-z 0-9 . _ / -");
    raw.run("UPDATE setting SET path = 'syslog.remote.3.address', value = '10.0.0.1' WHERE path = "
            "'syslog.file.path'");
    expect_refused(
        Error::InvalidState,
        "syslog.remote.1 and syslog.remote.3 are both 10.0.0.1 port 514; receivers must differ in address or "
        "port");
}

TEST_F(Backup, IsRefusedIfItIsDamaged) {
    change(folder, {{"module.fsm_pon.*", "debug"}});
    ASSERT_THAT(backup(copy, folder), IsOk());
    auto const page =
        std::stoul(RawDatabase{copy}.value("SELECT rootpage FROM sqlite_schema WHERE name = 'history'"));
    auto whole = test::read_file(copy);
    test::write_file(copy, whole.replace((page - 1) * 4096 + 8, 2, "\xFF\xFF"));
    auto const before = stored();
    EXPECT_THAT(restore(copy, folder), IsError(Error::InvalidState, HasSubstr(": damaged: ")));
    EXPECT_EQ(stored(), before);
}

} // namespace
} // namespace xpon::cfgdb
