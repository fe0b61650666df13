// Making and opening the database: modes, several processes at once, everything that can be wrong with a
// file.

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <functional>
#include <future>
#include <optional>
#include <sched.h>
#include <string>

#include <sys/mount.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/names_in.hpp"
#include "kit/report.hpp"
#include "readers.hpp"
#include "support.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"
#include "xpon/cfgdb/change_feed.hpp"
#include "xpon/cfgdb/trial.hpp"

namespace xpon::cfgdb {
namespace {

using core::Error;
using test::IsError;
using test::IsOkAnd;
using test::names_in;
using test::ScratchFolder;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// Why the wrapper cannot be made; empty if it can.
std::string opening_failure(std::filesystem::path const& folder) {
    try {
        CfgDbWrapper const cfgdb{"TEST_CFGDB", folder};
        ChangeFeed::take(); // it would keep the database open
    } catch (std::runtime_error const& error) {
        return error.what();
    }
    return "";
}

constexpr char const* file_names[] = {"running.db", "running.db-wal", "running.db-shm",
                                      "running.db.doorbell"};

void expect_modes(std::filesystem::path const& folder, mode_t folder_mode, mode_t file_mode) {
    EXPECT_EQ(mode_of(folder), folder_mode);
    for (auto const* name : file_names) {
        EXPECT_EQ(mode_of(folder / name), file_mode) << name;
    }
}

unsigned group_of(std::filesystem::path const& path) {
    struct stat status{};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_gid;
}

auto const complete_folder = testing::UnorderedElementsAreArray(file_names);

using NewDatabase = DatabaseFolder;

TEST_F(NewDatabase, IsMadeWithItsFolderAndHoldsNoSettings) {
    auto const folder = scratch / "not/yet/there";
    EXPECT_EQ(opening_failure(folder), "");
    EXPECT_THAT(names_in(folder), complete_folder);
    EXPECT_THAT(stored_settings(folder), IsOkAnd(IsEmpty()));
    RawDatabase const raw{folder / "running.db"};
    EXPECT_EQ(raw.value("PRAGMA user_version"), "1");
    EXPECT_EQ(raw.value("PRAGMA journal_mode"), "wal");
    EXPECT_EQ(raw.value("PRAGMA integrity_check"), "ok");
}

TEST_F(NewDatabase, AFolderMayBeNamedWithAFinalSlash) {
    EXPECT_EQ(opening_failure(scratch.path().string() + "/db/"), "");
    EXPECT_EQ(mode_of(scratch / "db"), 02770U);
}

TEST_F(NewDatabase, HasItsModesWhateverTheUmask) {
    for (mode_t const mask : {0000U, 0022U, 0077U, 0777U}) {
        ScratchFolder const scratch;
        auto const folder = scratch / "db";
        Child child{[&] {
            umask(mask);
            change(folder, {{"syslog.file.level", "debug"}});
            return opening_failure(folder).empty() ? 0 : 1;
        }};
        ASSERT_EQ(child.status(), 0);
        SCOPED_TRACE(mask);
        expect_modes(folder, 02770, 0660);
    }
}

TEST_F(NewDatabase, IsReadableForEverybodyWhereItsFolderIs) {
    std::filesystem::create_directory(folder);
    ASSERT_EQ(chmod(folder.c_str(), 02775), 0);
    EXPECT_EQ(opening_failure(folder), "");
    expect_modes(folder, 02775, 0664);
}

TEST_F(NewDatabase, BelongsToTheGroupXponWhereThatExists) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root gives files to another group";
    }
    test::write_file(scratch / "group", "root:x:0:\nxpon:x:4242:\n");
    Child child{[&] {
        bool const private_groups =
            unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
            mount((scratch / "group").c_str(), "/etc/group", nullptr, MS_BIND, nullptr) == 0;
        return private_groups && opening_failure(folder).empty() ? 0 : 1;
    }};
    ASSERT_EQ(child.status(), 0);
    expect_modes(folder, 02770, 0660);
    EXPECT_EQ(group_of(folder), 4242U);
    for (auto const* name : file_names) {
        EXPECT_EQ(group_of(folder / name), 4242U) << name;
    }
}

TEST_F(NewDatabase, SeveralProcessesAtOnceMakeOneAndLoseNothing) {
    constexpr int processes = 4;
    for (int round = 0; round < 10; ++round) {
        ScratchFolder const scratch;
        auto const folder = scratch / "db";
        Signal const begin;
        std::vector<std::unique_ptr<Child>> children;
        for (int i = 1; i <= processes; ++i) {
            children.push_back(std::make_unique<Child>([&, i] {
                begin.take();
                Transaction transaction;
                auto const path = "module.fsm_pon.port." + std::to_string(i);
                return transaction.set(path, "debug").has_value() && transaction.commit(folder).has_value()
                           ? 0
                           : 1;
            }));
        }
        for (int i = 0; i < processes; ++i) {
            begin.give();
        }
        for (auto const& child : children) {
            EXPECT_EQ(child->status(), 0);
        }
        EXPECT_THAT(names_in(folder), complete_folder);
        EXPECT_EQ(RawDatabase{folder / "running.db"}.value("SELECT count(*) FROM setting"), "4");
    }
}

TEST_F(NewDatabase, ThatNobodyHasOpenCanBeCopiedAndPutBackAsOneFile) {
    change(folder, {{"syslog.rsh.level", "debug"}});
    EXPECT_EQ(std::filesystem::file_size(folder / "running.db-wal"), 0U);
    std::filesystem::copy_file(folder / "running.db", scratch / "copy");
    change(folder, {{"syslog.rsh.level", "error"}, {"module.fsm_pon.*", "debug"}});
    EXPECT_EQ(std::filesystem::file_size(folder / "running.db-wal"), 0U);
    std::filesystem::copy_file(scratch / "copy", folder / "running.db",
                               std::filesystem::copy_options::overwrite_existing);
    EXPECT_THAT(stored_settings(folder),
                IsOkAnd(ElementsAre(testing::Field(&StoredSetting::value, "debug"))));
}

// --- files that are not what they should be

class BrokenDatabase : public DatabaseFolder {
  protected:
    void make() const { ASSERT_EQ(opening_failure(folder), ""); }

    /// A database of many pages, all of them in the file itself.
    void make_large() const { change(folder, {{"module.fsm_pon.*", "debug"}}); }

    /// A reader fails with this errno, leaves the record alone and writes this line to the system log.
    void expect_read_failure(CfgDbWrapper const& cfgdb, int error_number, std::string const& text) const {
        SyslogRshDest rsh{77};
        CapturedSyslog syslog;
        errno = 0;
        EXPECT_EQ(getRunDb_CommonGCfg_logging_syslog_rsh(cfgdb.db(), &rsh, all_zero_key), -1);
        EXPECT_EQ(errno, error_number);
        EXPECT_EQ(rsh.level, 77);
        EXPECT_EQ(syslog.lines(), "test: TEST_CFGDB - " + file.string() + ": " + text + "\n");
    }

    /// Overwrites the page of the settings' table.
    void overwrite_settings(std::string const& bytes) const {
        std::fstream out{file, std::ios::in | std::ios::out | std::ios::binary};
        out.seekp(settings_at());
        out << bytes;
    }

    std::streamoff settings_at() const {
        return (std::stol(
                    RawDatabase{file}.value("SELECT rootpage FROM sqlite_schema WHERE name = 'setting'")) -
                1) *
               page_size;
    }

    static constexpr std::size_t page_size = 4096;

    /// Every way in says the same.
    void expect_failure(Error code, std::string const& text) const {
        EXPECT_EQ(opening_failure(folder), text);
        auto transaction = wish({{"syslog.file.level", "debug"}});
        EXPECT_THAT(transaction.commit(folder), IsError(code, text));
        EXPECT_THAT(transaction.preview(folder), IsError(code, text));
        EXPECT_THAT(stored_settings(folder), IsError(code, text));
    }
};

TEST_F(BrokenDatabase, AFileThatCannotBeUsedIsRefused) {
    struct Case {
        std::function<void()> make;
        Error code;
        std::string text;
    };
    auto const cases = {
        Case{[&] { test::write_file(file, std::string(8192, 'x')); }, Error::CommonError,
             "file is not a database"},
        Case{[&] { test::write_file(file, ""); }, Error::InvalidState,
             "not a configuration database (application id 0, not 1481657411)"},
        Case{[&] { RawDatabase{file}.run("PRAGMA application_id = 7"); }, Error::InvalidState,
             "not a configuration database (application id 7, not 1481657411)"},
        Case{[&] { RawDatabase{file}.run("PRAGMA user_version = 2"); }, Error::InvalidState,
             "its schema version is 2, this program knows version 1"},
        Case{[&] { RawDatabase{file}.run("DROP TABLE journal"); }, Error::CommonError,
             "no such table: journal"},
        Case{[&] {
                 make_large();
                 std::filesystem::resize_file(file, std::filesystem::file_size(file) / 2);
             },
             Error::CommonError, "database disk image is malformed"},
    };
    for (auto const& [make_unusable, code, text] : cases) {
        std::filesystem::remove_all(folder);
        make();
        make_unusable();
        expect_failure(code, file.string() + ": " + text);
    }
}

TEST_F(BrokenDatabase, ADamagedPageFailsTheRecordThatIsOnItUntilItIsMended) {
    change(folder, {{"module.fsm_pon.*", "debug"}, {"syslog.rsh.level", "debug"}});
    auto const whole = test::read_file(file).substr(static_cast<std::size_t>(settings_at()), page_size);
    overwrite_settings(std::string(page_size, '\xFF'));
    CfgDbWrapper const cfgdb{"TEST_CFGDB", folder};
    expect_read_failure(cfgdb, EIO, "syslog.rsh.*: database disk image is malformed");
    overwrite_settings(whole);
    EXPECT_EQ(rsh_level(cfgdb), 5);
}

TEST_F(BrokenDatabase, AFolderInItsPlaceIsRefused) {
    std::filesystem::create_directories(file);
    EXPECT_EQ(opening_failure(folder), file.string() + ": cannot be opened (Is a directory)");
}

TEST_F(BrokenDatabase, AFileInPlaceOfTheFolderIsRefused) {
    test::write_file(folder, "");
    EXPECT_EQ(opening_failure(folder), folder.string() + ": cannot be locked (Not a directory)");
}

TEST_F(BrokenDatabase, AFolderThatCannotBeCreatedIsNamedWithTheReason) {
    test::write_file(folder, "");
    EXPECT_EQ(opening_failure(folder / "below"),
              (folder / "below").string() + ": cannot create the folder (Not a directory)");
}

TEST_F(BrokenDatabase, ReadingDoesNotMakeADatabase) {
    EXPECT_THAT(
        stored_settings(folder),
        IsError(Error::CommonError, file.string() + ": cannot be opened (No such file or directory)"));
    EXPECT_FALSE(std::filesystem::exists(folder));
}

// --- a file that changes under an open handle

TEST_F(BrokenDatabase, OpenedForReadingItIsNeitherMadeNorFollowed) {
    EXPECT_THROW((CfgDbWrapper{"TEST_CFGDB", folder / "other", ReadOnly{}}), std::runtime_error);
    EXPECT_FALSE(std::filesystem::exists(folder / "other"));
    make();
    std::ignore = ChangeFeed::take();
    CfgDbWrapper const cfgdb{"TEST_CFGDB", folder, ReadOnly{}};
    EXPECT_EQ(rsh_level(cfgdb), 3);
    EXPECT_EQ(ChangeFeed::take(), nullptr);
}

TEST_F(BrokenDatabase, AfterItsRemovalReadersAndFeedFailInsteadOfGivingOldValues) {
    CfgDbWrapper const cfgdb{"TEST_CFGDB", folder};
    auto const feed = ChangeFeed::take();
    std::filesystem::remove_all(folder);
    expect_read_failure(cfgdb, EIO, "cannot be opened (No such file or directory)");
    EXPECT_THAT(feed->next(), IsError(Error::CommonError, HasSubstr(folder.string())));
}

TEST_F(BrokenDatabase, NothingOfARemovedOneGetsIntoTheNext) {
    change(folder, {{"module.fsm_pon.ont.*", "debug"}});         // a long log
    CfgDbWrapper const reader{"TEST_CFGDB", folder, ReadOnly{}}; // keeps the log from being emptied
    change(folder, {{"module.fsm_pon.ont.*", "error"}});
    std::filesystem::remove(folder / "running.db");
    change(folder, {{"syslog.rsh.level", "debug"}});
    RawDatabase const raw{folder / "running.db"};
    EXPECT_EQ(raw.value("PRAGMA integrity_check"), "ok");
    EXPECT_THAT(raw.rows("SELECT path, value FROM setting"), testing::ElementsAre("syslog.rsh.level|5"));
}

TEST_F(BrokenDatabase, AfterItsReplacementReadersGiveWhatTheNewOneHolds) {
    change(folder, {{"syslog.rsh.level", "debug"}});
    std::filesystem::copy_file(file, scratch / "copy");
    change(folder, {{"syslog.rsh.level", "error"}});
    CfgDbWrapper const cfgdb{"TEST_CFGDB", folder};
    ChangeFeed::take();
    std::filesystem::rename(scratch / "copy", file);
    errno = 0;
    EXPECT_EQ(rsh_level(cfgdb), 5);
    EXPECT_EQ(errno, 0);
}

TEST_F(BrokenDatabase, AReplacementThatCannotBeUsedFailsUntilItCan) {
    CfgDbWrapper const cfgdb{"TEST_CFGDB", folder};
    ChangeFeed::take();
    std::filesystem::rename(file, folder / "good");
    test::write_file(file, std::string(8192, 'x'));
    for (int i = 0; i < 3; ++i) {
        expect_read_failure(cfgdb, EIO, "file is not a database");
    }
    std::filesystem::rename(folder / "good", file);
    EXPECT_EQ(rsh_level(cfgdb), 3);
}

// --- what is no table

TEST_F(BrokenDatabase, AViewATriggerAndAVirtualTableAreRefused) {
    make();
    auto const refused = [this](std::string const& what) {
        expect_failure(Error::InvalidState,
                       file.string() + ": holds the " + what +
                           "; a configuration database has only tables; restore it from a copy");
    };
    RawDatabase const raw{file};
    raw.run("CREATE TRIGGER stop BEFORE INSERT ON history BEGIN SELECT RAISE(ABORT, 'no'); END");
    refused("trigger \"stop\"");
    raw.run("DROP TRIGGER stop; DROP TABLE setting; CREATE VIEW setting AS WITH RECURSIVE e(n) AS (SELECT 1 "
            "UNION ALL SELECT n FROM e) SELECT 'x' AS path, n AS value FROM e");
    refused("view \"setting\"");
    raw.run("DROP VIEW setting; CREATE VIRTUAL TABLE setting USING rtree(path, a, b)");
    refused("virtual table \"setting\"");
    test::report("an endless view in the place of the settings\ta database made so by another program\t"
                 "holds the view \"setting\"");
}

TEST_F(BrokenDatabase, AnEndlessQueryIsStoppedAfterFiveSeconds) {
    CfgDbWrapper const cfgdb{"TEST_CFGDB", folder};
    ChangeFeed::take();
    // Behind the back of the open database: at its opening it was a good one.
    RawDatabase{file}.run(
        "DROP TABLE setting; CREATE VIEW setting AS WITH RECURSIVE e(n) AS (SELECT 1 UNION ALL "
        "SELECT n + 1 FROM e) SELECT 'x' || n AS path, n AS value FROM e");
    expect_read_failure(cfgdb, EIO,
                        "syslog.rsh.*: a query was ended after 5 s: the database is far too large, or "
                        "a view in it never ends");
}

// --- texts of others

TEST_F(BrokenDatabase, WhatItHoldsIsSafeInLogsOnTerminalsAndInNotifications) {
    for (std::string const name : {"x\nMAINPID=222\nREADY=1", "x\x1b[2J\x1b]0;y\x07"}) {
        std::filesystem::remove_all(folder);
        make();
        CfgDbWrapper const cfgdb{"TEST_CFGDB", folder};
        auto const feed = ChangeFeed::take();
        {
            RawDatabase const raw{file};
            raw.run("CREATE TABLE \"" + name +
                    "\"(a); PRAGMA writable_schema = ON; UPDATE sqlite_schema SET sql = 'CREATE ' || name "
                    "WHERE name LIKE 'x%'; "
                    "INSERT INTO sqlite_schema VALUES('table', 'y', 'y', 2, 'CREATE TABLE y')");
        }
        SyslogRshDest rsh{};
        CapturedSyslog syslog;
        EXPECT_EQ(getRunDb_CommonGCfg_logging_syslog_rsh(cfgdb.db(), &rsh, all_zero_key), -1);
        auto const logged = syslog.lines();
        auto const thrown = opening_failure(folder);
        auto const returned = stored_settings(folder);
        auto const fed = feed->next();
        ASSERT_THAT(returned, IsError(Error::CommonError, testing::_));
        ASSERT_THAT(fed, IsError(Error::CommonError, testing::_));
        for (auto const& text : {logged.substr(0, logged.size() - 1), thrown, returned.error().message(),
                                 fed.error().message()}) {
            EXPECT_THAT(text, HasSubstr("malformed database schema (x\\x")) << "what the test wants to see";
            EXPECT_TRUE(std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; })) << text;
        }
        RawDatabase{file}.run("PRAGMA writable_schema = RESET");
    }
}

TEST_F(BrokenDatabase, TheNameOfAViewAndTheAuthorOfATrialAreSafeToo) {
    make();
    RawDatabase const raw{file};
    raw.run("CREATE VIEW \"x\nMAINPID=222\nREADY=1\" AS SELECT 1");
    EXPECT_THAT(opening_failure(folder), HasSubstr(R"(holds the view "x\x0aMAINPID=222\x0aREADY=1")"));
    raw.run("DROP VIEW \"x\nMAINPID=222\nREADY=1\"; INSERT INTO pending VALUES(1, 'b', 1 << 40, 'a' || "
            "char(27) || '[2J', 0, '')");
    EXPECT_EQ(pending_trials(folder).value().front().author, R"("a\x1b[2J")");
    test::report("control characters in the database's own texts\ta schema name with lines for systemd, one "
                 "with escape sequences\tmalformed database schema");
}

// --- errors of the disk

TEST_F(BrokenDatabase, AFileThatEndsTooEarlyIsAnError) {
    make_large();
    CfgDbWrapper const cfgdb{"TEST_CFGDB", folder};
    ChangeFeed::take();
    change(folder, {{"module.fsm_pon.*", "info"}});
    std::filesystem::resize_file(folder / "running.db-wal", 4096); // the index still tells of its pages
    ModuleFsmPon fsm{};
    CapturedSyslog syslog;
    EXPECT_EQ(getRunDb_CommonGCfg_logging_module_fsm_pon(cfgdb.db(), &fsm, all_zero_key), -1);
    EXPECT_THAT(syslog.lines(),
                HasSubstr("disk I/O error (a file ends before the data that should be in it)"));
    test::report(
        "a log that ends too early\tcut while it is open\ta file ends before the data that should be "
        "in it");
}

// --- locks

constexpr char const* locked = "locked by another process for more than 5 s";

/// A process that, once told to, does something to the database and then keeps it so.
class Holder {
  public:
    explicit Holder(std::function<void()> const& hold)
      : child{[this, hold] {
          begin.take();
          hold();
          ready.give();
          pause();
          return 0;
      }} {}

    void start() const {
        begin.give();
        ready.take();
    }

  private:
    Signal begin;
    Signal ready;
    Child child;
};

TEST_F(BrokenDatabase, OneThatIsLockedForLongerThanFiveSecondsIsRefused) {
    make();
    std::optional<RawDatabase> raw;
    Holder const holder{[&] {
        raw.emplace(file);
        raw->run("PRAGMA locking_mode = EXCLUSIVE; BEGIN EXCLUSIVE; INSERT INTO setting VALUES('x', 1)");
    }};
    holder.start();
    auto const begin = std::chrono::steady_clock::now();
    auto const written = std::async(std::launch::async, [this] { return opening_failure(folder); }).share();
    EXPECT_THAT(stored_settings(folder), IsError(Error::CommonError, file.string() + ": " + locked));
    EXPECT_EQ(written.get(), file.string() + ": " + locked);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds{5});
}

TEST_F(BrokenDatabase, AWriterThatHoldsItStopsOtherWritersButNoReader) {
    std::optional<RawDatabase> raw;
    Holder const holder{[&] {
        raw.emplace(file);
        raw->run("BEGIN IMMEDIATE; INSERT INTO setting VALUES('syslog.rsh.level', 5)");
    }};
    CfgDbWrapper const cfgdb{"TEST_CFGDB", folder};
    holder.start();
    auto transaction = wish({{"syslog.file.level", "debug"}});
    EXPECT_THAT(transaction.commit(folder), IsError(Error::CommonError, file.string() + ": " + locked));
    EXPECT_EQ(rsh_level(cfgdb), 3);
}

/// As a process that hangs while it rebuilds the log's index after a crash.
void hold_recovery(std::filesystem::path const& index) {
    int const fd = open(index.c_str(), O_RDWR | O_CLOEXEC);
    struct flock locks{};
    locks.l_type = F_WRLCK;
    locks.l_whence = SEEK_SET;
    locks.l_start = 120; // the locks of writer, checkpointer and recovery
    locks.l_len = 3;
    EXPECT_EQ(fcntl(fd, F_SETLK, &locks), 0);
    std::array<char, 96> const unwritten{};
    EXPECT_EQ(pwrite(fd, unwritten.data(), unwritten.size(), 0), std::ssize(unwritten));
}

TEST_F(BrokenDatabase, AReaderThatIsLockedOutForLongerThanFiveSecondsReportsBusy) {
    Holder const holder{[&] { hold_recovery(folder / "running.db-shm"); }};
    CfgDbWrapper const cfgdb{"TEST_CFGDB", folder};
    holder.start();
    expect_read_failure(cfgdb, EBUSY, std::string{"syslog.rsh.*: "} + locked);
}

// --- who may

class OtherUsers : public DatabaseFolder {
  protected:
    OtherUsers() {
        chmod(scratch.path().c_str(), 0755);
        std::filesystem::create_directory(folder);
        chmod(folder.c_str(), 02775);
    }

    /// Runs `body` as a user who may not write the folder, once `prepare` is done; 0 if no expectation
    /// failed.
    int without_write_permission(std::function<void()> const& prepare,
                                 std::function<void()> const& body) const {
        Signal prepared;
        Child child{[&] {
            prepared.take();
            bool const root = geteuid() == 0;
            if (root && (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0)) {
                return 99;
            }
            body();
            return HasFailure() ? 1 : 0;
        }};
        prepare();
        set_modes(0444, 0555); // for whoever is not root; root's child is another user anyway
        prepared.give();
        int const status = child.status();
        set_modes(0664, 02775);
        return status;
    }

    void set_modes(mode_t files, mode_t folders) const {
        if (geteuid() == 0) {
            return;
        }
        chmod(folder.c_str(), 02775);
        for (auto const& name : names_in(folder)) {
            chmod((folder / name).c_str(), files);
        }
        chmod(folder.c_str(), folders);
    }

    void read_and_try_to_write() const {
        EXPECT_THAT(stored_settings(folder),
                    IsOkAnd(ElementsAre(testing::Field(&StoredSetting::value, "debug"))));
        auto transaction = wish({{"syslog.file.level", "error"}});
        EXPECT_THAT(transaction.preview(folder), IsOkAnd(testing::SizeIs(1)));
        auto const refused = file.string() + ": cannot be written (Permission denied)";
        EXPECT_THAT(transaction.commit(folder), IsError(Error::NoAccess, refused));
        EXPECT_EQ(opening_failure(folder), refused);
    }
};

TEST_F(OtherUsers, MayReadEvenAfterEveryWriterHasClosed) {
    auto const prepare = [this] { change(folder, {{"syslog.file.level", "debug"}}); };
    EXPECT_EQ(without_write_permission(prepare, [this] { read_and_try_to_write(); }), 0);
}

TEST_F(OtherUsers, MayReadWhileTheDatabaseIsOpen) {
    std::optional<CfgDbWrapper> cfgdb;
    auto const prepare = [&] {
        cfgdb.emplace("TEST_CFGDB", folder);
        change(folder, {{"syslog.file.level", "debug"}});
    };
    EXPECT_EQ(without_write_permission(prepare, [this] { read_and_try_to_write(); }), 0);
    ChangeFeed::take();
}

TEST_F(OtherUsers, AreToldWhenTheyMayNotEvenRead) {
    auto const prepare = [this] {
        change(folder, {{"syslog.file.level", "debug"}});
        chmod(file.c_str(), 0);
    };
    auto const body = [this] {
        auto const refused = file.string() + ": cannot be opened (Permission denied)";
        EXPECT_THAT(stored_settings(folder), IsError(Error::CommonError, refused));
        EXPECT_EQ(opening_failure(folder), refused);
    };
    if (geteuid() == 0) {
        EXPECT_EQ(without_write_permission(prepare, body), 0);
    } else {
        prepare();
        body();
    }
}

TEST_F(OtherUsers, AreToldIfTheFolderCannotBeCreated) {
    EXPECT_EQ(without_write_permission([] {},
                                       [this] {
                                           EXPECT_EQ(opening_failure(folder / "a/b"),
                                                     (folder / "a/b").string() +
                                                         ": cannot create the folder (Permission denied)");
                                       }),
              0);
}

} // namespace
} // namespace xpon::cfgdb
