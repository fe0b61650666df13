#include "xpon/cfgdb/transaction.hpp"

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <pwd.h>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/report.hpp"
#include "support.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"
#include "xpon/cfgdb/change_feed.hpp"
#include "xpon/cfgdb/history.hpp"

namespace xpon::cfgdb {
namespace {

using core::Error;
using test::IsError;
using test::IsOk;
using test::IsOkAnd;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class Transactions : public DatabaseFolder {
  protected:
    Transactions() {
        Transaction{}.commit(folder).value(); // makes the database
        raw.emplace(file);
    }

    std::vector<std::string> settings() const {
        return raw->rows("SELECT path, value FROM setting ORDER BY path");
    }
    std::vector<std::string> journal() const { return raw->rows("SELECT sequence, field_id FROM journal"); }
    std::vector<std::string> history() const {
        return raw->rows("SELECT number, author, path, old, new FROM history ORDER BY entry");
    }

    std::optional<RawDatabase> raw;
};

TEST_F(Transactions, StoreWhatDiffersFromTheDefaultsAndSayWhatChanged) {
    EXPECT_THAT(
        change(folder, {{"syslog.remote.1.address", "10.0.0.1"},
                        {"syslog.file.path", "/var/log/board/"},
                        {"syslog.file.size", "65536"},
                        {"module.snmp.TRAP", "5"},
                        {"module.snmp.SELF", "notice"}}),
        ElementsAre("syslog.file.path: /var/log/ -> /var/log/board/", "syslog.file.size: 1048576 -> 65536",
                    "syslog.remote.1.address: 0.0.0.0 -> 10.0.0.1", "module.snmp.TRAP: notice -> debug"));
    EXPECT_THAT(settings(), ElementsAre("module.snmp.TRAP|5", "syslog.file.path|/var/log/board/",
                                        "syslog.file.size|65536", "syslog.remote.1.address|10.0.0.1"));
    EXPECT_THAT(raw->rows("SELECT typeof(value) FROM setting ORDER BY path"),
                ElementsAre("integer", "text", "integer", "text"));
}

TEST_F(Transactions, JournalEveryChangedFieldOnce) {
    change(folder, {{"module.snmp.*", "debug"},
                    {"syslog.file.level", "error"},
                    {"syslog.file.size", "65536"},
                    {"syslog.kernel.level", "warning"}});
    EXPECT_THAT(journal(), ElementsAre("1|52", "2|69"));
    change(folder, {{"module.fsm_pon.ont.3.1-16", "debug"}});
    EXPECT_THAT(journal(), ElementsAre("1|52", "2|69", "3|60"));
    EXPECT_EQ(raw->value("SELECT count(*) FROM journal WHERE abs(at - CAST(strftime('%s') AS INTEGER)) < 60"),
              "3");
}

TEST_F(Transactions, RememberWhoChangedWhatFromWhatToWhat) {
    change(folder, {{"syslog.file.level", "error"}, {"syslog.rsh.level", "error"}}, "admin");
    change(folder, {{"syslog.file.level", "debug"}}, "ben");
    EXPECT_THAT(history(),
                ElementsAre("1|admin|syslog.file.level|info|error", "1|admin|syslog.rsh.level|notice|error",
                            "2|ben|syslog.file.level|error|debug"));
    EXPECT_EQ(raw->value("SELECT count(*) FROM history WHERE abs(at - CAST(strftime('%s') AS INTEGER)) < 60"),
              "3");
}

TEST_F(Transactions, TheLastValueGivenForASettingWins) {
    EXPECT_THAT(change(folder, {{"module.arp.*", "debug"}, {"module.arp.TX", "error"}}),
                ElementsAre("module.arp.SELF: notice -> debug", "module.arp.RX: notice -> debug",
                            "module.arp.TX: notice -> error", "module.arp.PROXY: notice -> debug"));
}

TEST_F(Transactions, ThatChangeNothingWriteNothing) {
    change(folder, {{"syslog.file.level", "debug"}});
    EXPECT_THAT(change(folder, {{"syslog.file.level", "5"}, {"syslog.rsh.level", "notice"}}), IsEmpty());
    EXPECT_THAT(journal(), ElementsAre("1|52"));
    EXPECT_THAT(history(), SizeIs(1));
}

TEST_F(Transactions, AValueEqualToTheDefaultLeavesNoRow) {
    change(folder, {{"module.*", "debug"}, {"syslog.*.level", "critical"}, {"syslog.remote.1-3.port", "1"}});
    EXPECT_EQ(raw->value("SELECT count(*) FROM setting"), "4208"); // 87 + 4113 + 5 + 3
    change(folder, {{"module.snmp.TRAP", "notice"}});
    EXPECT_EQ(raw->value("SELECT count(*) FROM setting"), "4207");
    Transaction transaction;
    EXPECT_THAT(transaction.reset("*"), IsOk());
    EXPECT_THAT(transaction.commit(folder), IsOkAnd(SizeIs(4207)));
    EXPECT_EQ(raw->value("SELECT count(*) FROM setting"), "0");
    EXPECT_THAT(transaction.commit(folder), IsOkAnd(IsEmpty()));
}

TEST_F(Transactions, RefuseBuiltInSettingsByNameAndLeaveThemOutOfWildcards) {
    Transaction transaction;
    for (auto const* pattern : {"module.logconfig.SELF", "module.logconfig.*"}) {
        auto const refused =
            IsError(Error::InvalidInputArg, std::string{pattern} + ": built in and cannot be set");
        EXPECT_THAT(transaction.set(pattern, "debug"), refused);
        EXPECT_THAT(transaction.reset(pattern), refused);
    }
    EXPECT_THAT(transaction.set("module.*.SELF", "debug"), IsOk());
    EXPECT_THAT(transaction.commit(folder), IsOkAnd(SizeIs(18)));
}

TEST_F(Transactions, ARefusedWishLeavesTheOthersAsTheyWere) {
    auto transaction = wish({{"syslog.file.level", "debug"}});
    EXPECT_THAT(transaction.set("syslog.remote.*", "5"),
                IsError(Error::InvalidInputArg, HasSubstr("syslog.remote.1.address: \"5\" is not allowed")));
    EXPECT_THAT(transaction.set("syslog.nothing", "5"),
                IsError(Error::InvalidInputArg, HasSubstr("no such setting")));
    EXPECT_THAT(transaction.commit(folder), IsOkAnd(SizeIs(1)));
    EXPECT_THAT(settings(), ElementsAre("syslog.file.level|5"));
}

TEST_F(Transactions, APreviewSaysWhatWouldChangeAndWritesNothing) {
    auto transaction = wish({{"module.arp.*", "debug"}});
    EXPECT_THAT(transaction.preview(folder), IsOkAnd(SizeIs(4)));
    EXPECT_THAT(settings(), IsEmpty());
    EXPECT_THAT(journal(), IsEmpty());
    EXPECT_THAT(transaction.commit(folder), IsOkAnd(SizeIs(4)));
    EXPECT_THAT(transaction.preview(folder), IsOkAnd(IsEmpty()));
}

std::string both(int one, int other, std::string const& receiver) {
    return fmt::format(
        "syslog.remote.{} and syslog.remote.{} are both {}; receivers must differ in address or port", one,
        other, receiver);
}

TEST_F(Transactions, PutBackOnlyWhatStillHasTheValue) {
    change(folder, {{"syslog.rsh.level", "debug"}, {"module.snmp.TRAP", "error"}});
    Transaction back;
    EXPECT_THAT(back.put_back("syslog.rsh.level", "debug", "notice"), IsOk());
    EXPECT_THAT(back.put_back("module.snmp.TRAP", "info", "notice"), IsOk());
    EXPECT_THAT(back.put_back("syslog.kernel.level", "warning", "critical"), IsOk());
    EXPECT_THAT(back.put_back("syslog.rsh.leve", "debug", "notice"),
                IsError(Error::InvalidInputArg, testing::_));
    EXPECT_THAT(back.put_back("syslog.rsh.level", "debug", "loud"),
                IsError(Error::InvalidInputArg, testing::_));
    EXPECT_EQ(back.preview(folder).value().size(), 2U);
    EXPECT_EQ(back.commit(folder).value().size(), 2U);
    EXPECT_THAT(settings(), ElementsAre("module.snmp.TRAP|1", "syslog.kernel.level|0"));

    EXPECT_THAT(back.set("module.snmp.TRAP", "debug"), IsOk()); // the later wish counts whatever it is now
    EXPECT_EQ(back.commit(folder).value().size(), 1U);
}

TEST_F(Transactions, TwoReceiversOfOneAddressAndPortAreRefused) {
    change(folder, {{"syslog.remote.1.address", "10.0.0.1"}});
    auto transaction = wish({{"syslog.remote.2.address", "10.0.0.1"}, {"syslog.file.level", "debug"}});
    auto const refused = IsError(Error::InvalidInputArg, both(1, 2, "10.0.0.1 port 514"));
    EXPECT_THAT(transaction.preview(folder), refused);
    EXPECT_THAT(transaction.commit(folder), refused);
    EXPECT_THAT(settings(), ElementsAre("syslog.remote.1.address|10.0.0.1"));

    EXPECT_THAT(transaction.set("syslog.remote.2.port", "1514"), IsOk());
    EXPECT_THAT(transaction.commit(folder), IsOkAnd(SizeIs(3)));
    Transaction back;
    EXPECT_THAT(back.reset("syslog.remote.2.port"), IsOk());
    EXPECT_THAT(back.commit(folder), refused);
}

TEST_F(Transactions, UnusedReceiversAndDifferentAddressesMayShareAPort) {
    EXPECT_THAT(change(folder, {{"syslog.remote.*.port", "999"}}), SizeIs(3));
    EXPECT_THAT(
        change(folder, {{"syslog.remote.1.address", "10.0.0.1"}, {"syslog.remote.2.address", "10.0.0.2"}}),
        SizeIs(2));
}

TEST_F(Transactions, ReceiversMayChangePlacesInOneTransaction) {
    change(folder, {{"syslog.remote.1.address", "10.0.0.1"}, {"syslog.remote.2.address", "10.0.0.2"}});
    EXPECT_THAT(
        change(folder, {{"syslog.remote.1.address", "10.0.0.2"}, {"syslog.remote.2.address", "10.0.0.1"}}),
        SizeIs(2));
}

TEST_F(Transactions, StoredEqualReceiversDoNotBlockOtherSettings) {
    raw->run("INSERT INTO setting VALUES('syslog.remote.1.address', '10.0.0.1'), ('syslog.remote.3.address', "
             "'10.0.0.1')");
    EXPECT_THAT(change(folder, {{"module.arp.SELF", "debug"}}), SizeIs(1));
    auto transaction = wish({{"syslog.remote.level", "debug"}});
    EXPECT_THAT(transaction.commit(folder), IsError(Error::InvalidInputArg, both(1, 3, "10.0.0.1 port 514")));
    EXPECT_THAT(change(folder, {{"syslog.remote.3.address", "0.0.0.0"}}), SizeIs(1));
}

TEST_F(Transactions, WhatIsStoredAndNotAllowedCanBeReplacedAndIsNamedSafely) {
    raw->run("INSERT INTO setting VALUES('syslog.file.path', '/a' || char(10) || '/'), ('syslog.file.level', "
             "'debug'), ('syslog.remote.1.address', 7), ('syslog.remote.2.port', x'00')");
    EXPECT_THAT(change(folder, {{"syslog.file.path", "/b/"},
                                {"syslog.file.level", "info"},
                                {"syslog.remote.1.address", "10.0.0.1"}}),
                ElementsAre("syslog.file.path: \"/a\\x0a/\" -> /b/", "syslog.file.level: \"debug\" -> info",
                            "syslog.remote.1.address: 7 -> 10.0.0.1"));
    EXPECT_THAT(raw->rows("SELECT path FROM setting ORDER BY path"),
                ElementsAre("syslog.file.path", "syslog.remote.1.address", "syslog.remote.2.port"));
}

TEST_F(Transactions, AreAllOrNothing) {
    raw->run("CREATE UNIQUE INDEX once ON history(path) WHERE path = 'module.fsm_pon.ont.16.256'; "
             "INSERT INTO history VALUES(1, 1, 0, 'a', 'module.fsm_pon.ont.16.256', 'o', 'n')");
    auto transaction = wish({{"*.fsm_pon.*", "debug"}, {"syslog.file.level", "debug"}});
    EXPECT_THAT(transaction.commit(folder),
                IsError(Error::CommonError, file.string() + ": UNIQUE constraint failed: history.path"));
    EXPECT_THAT(settings(), IsEmpty());
    EXPECT_THAT(journal(), IsEmpty());
    EXPECT_THAT(history(), SizeIs(1));
    raw->run("DROP INDEX once");
    EXPECT_THAT(transaction.commit(folder), IsOkAnd(SizeIs(4125)));
}

TEST_F(Transactions, WithoutADoorbellNothingIsWritten) {
    auto const doorbell = folder / "running.db.doorbell";
    struct Case {
        char const* what;
        std::function<void()> make;
    };
    Case const cases[] = {
        {"a folder", [&] { std::filesystem::create_directory(doorbell); }},
        {"a FIFO", [&] { ASSERT_EQ(mkfifo(doorbell.c_str(), 0666), 0); }},
        {"a symbolic link", [&] { std::filesystem::create_symlink(scratch / "elsewhere", doorbell); }},
    };
    for (auto const& [what, make] : cases) {
        std::filesystem::remove(doorbell);
        make();
        auto transaction = wish({{"syslog.file.level", "debug"}});
        EXPECT_THAT(
            transaction.commit(folder),
            IsError(Error::InvalidState, fmt::format("{}: not a regular file but {}; remove it; the next "
                                                     "change creates it again",
                                                     doorbell.string(), what)));
        EXPECT_THAT(settings(), IsEmpty());
    }
    EXPECT_FALSE(std::filesystem::exists(scratch / "elsewhere"));
    core::UniqueFd reader;
    std::filesystem::remove(doorbell);
    ASSERT_EQ(mkfifo(doorbell.c_str(), 0666), 0);
    reader.reset(open(doorbell.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)); // then it can be opened
    auto transaction = wish({{"syslog.file.level", "debug"}});
    EXPECT_THAT(transaction.commit(folder), IsError(Error::InvalidState, HasSubstr("a FIFO")));
    std::filesystem::remove(doorbell);
    EXPECT_THAT(transaction.commit(folder), IsOk());
    test::report(
        "no regular file in the place of the doorbell\ta FIFO, a folder, a link\tnot a regular file");
}

// --- pruning

std::string journal_entries(int count, std::string const& at) {
    return "WITH RECURSIVE n(i) AS (VALUES(1) UNION ALL SELECT i + 1 FROM n WHERE i < " +
           std::to_string(count) + ") INSERT INTO journal(field_id, at) SELECT 52, " + at + " FROM n";
}

/// So many transactions of so many entries each, after the number `after`.
std::string transactions(int entries, int count, int after) {
    return fmt::format("WITH RECURSIVE n(i) AS (VALUES(0) UNION ALL SELECT i + 1 FROM n WHERE i < {} - 1) "
                       "INSERT INTO history(number, at, author, path, old, new) SELECT {} + i / {} + 1, 0, "
                       "'a', 'p', 'o', 'n' FROM n",
                       entries * count, after, entries);
}

TEST_F(Transactions, TheJournalKeepsItsLastTenThousandEntriesWhateverTheirAge) {
    raw->run(journal_entries(10050, "strftime('%s')"));
    change(folder, {{"syslog.rsh.level", "debug"}});
    EXPECT_EQ(raw->value("SELECT count(*), min(sequence), max(sequence) FROM journal"), "10000|52|10051");
    raw->run(journal_entries(500, "1000"));
    change(folder, {{"syslog.rsh.level", "info"}});
    EXPECT_EQ(raw->value("SELECT count(*), min(sequence), max(sequence) FROM journal"), "10000|553|10552");
}

std::string shown_history(std::filesystem::path const& folder) {
    auto const shown = cfgdb::history(folder).value();
    return fmt::format("{} transactions, {} to {}", shown.size(), shown.front().number, shown.back().number);
}

TEST_F(Transactions, TheHistoryKeepsTheLastThousandTransactionsWhateverTheirSize) {
    raw->run(transactions(30, 999, 0)); // 30 each
    change(folder, {{"syslog.rsh.level", "debug"}});
    EXPECT_EQ(raw->value("SELECT count(*), min(number) FROM history"), "29971|1")
        << "a thousand with this one";
    EXPECT_EQ(shown_history(folder), "1000 transactions, 1 to 1000");
    change(folder, {{"syslog.rsh.level", "info"}});
    EXPECT_EQ(shown_history(folder), "1000 transactions, 2 to 1001");
    change(folder, {{"syslog.rsh.level", "debug"}, {"syslog.console.level", "debug"}});
    EXPECT_EQ(shown_history(folder), "1000 transactions, 3 to 1002");
    EXPECT_EQ(raw->value("SELECT count(*), min(number) FROM history"), "29941|2")
        << "16 and 17 of 60 are dropped";
}

TEST_F(Transactions, TheHistoryDoesNotGrowWhileItHasOldRows) {
    raw->run(transactions(4096, 1, 0));
    raw->run(transactions(1, 999, 1));
    auto const rows = [this] { return std::stoi(raw->value("SELECT count(*) FROM history")); };
    auto const before = rows();
    change(folder, {{"syslog.rsh.level", "debug"}});
    EXPECT_EQ(rows(), before - 15);
    change(folder, {{"module.fsm_pon.ont.1.*", "debug"}});
    EXPECT_EQ(rows(), before - 30);
    change(folder, {{"module.fsm_pon.ont.*", "error"}});
    EXPECT_EQ(raw->value("SELECT min(number) FROM history"), "4") << "nothing old is left";
}

/// What the library's statements cost, whichever connection runs them.
class Cost {
  public:
    Cost() {
        now = this;
        sqlite3_auto_extension(reinterpret_cast<void (*)()>(&Cost::follow));
    }
    ~Cost() {
        sqlite3_cancel_auto_extension(reinterpret_cast<void (*)()>(&Cost::follow));
        now = nullptr;
    }
    Cost(Cost const&) = delete;
    Cost& operator=(Cost const&) = delete;

    int steps = 0;        ///< of SQLite's machine
    int most_scanned = 0; ///< rows that one statement went through without an index

  private:
    static int follow(sqlite3* connection, char const** /*message*/, sqlite3_api_routines const* /*api*/) {
        auto const add = [](unsigned /*event*/, void* /*context*/, void* statement, void* /*time*/) {
            auto const counted = [statement](int counter) {
                return sqlite3_stmt_status(static_cast<sqlite3_stmt*>(statement), counter, 1);
            };
            now->steps += counted(SQLITE_STMTSTATUS_VM_STEP);
            now->most_scanned = std::max(now->most_scanned, counted(SQLITE_STMTSTATUS_FULLSCAN_STEP));
            return 0;
        };
        return sqlite3_trace_v2(connection, SQLITE_TRACE_PROFILE, add, nullptr);
    }

    static inline Cost* now = nullptr;
};

TEST_F(Transactions, CostTheSameHoweverMuchTheDatabaseHolds) {
    auto const cost_of_a_change = [this](std::string const& level) {
        Cost cost;
        change(folder, {{"syslog.rsh.level", level}});
        EXPECT_LT(cost.most_scanned, 100);
        return cost.steps;
    };
    raw->run(journal_entries(10000, "1000"));
    raw->run(transactions(1, 1000, 0));
    change(folder, {{"syslog.rsh.level", "debug"}}); // from now on each commit drops what it adds
    auto const usual = cost_of_a_change("info");
    raw->run(journal_entries(300000, "1000"));
    raw->run(transactions(1, 100000, 2000));
    auto const before = std::stoi(raw->value("SELECT count(*) FROM journal"));
    auto const history_before = std::stoi(raw->value("SELECT count(*) FROM history"));
    auto const with_much = cost_of_a_change("debug");
    EXPECT_EQ(std::stoi(raw->value("SELECT count(*) FROM journal")), before + 1 - 1000);
    EXPECT_EQ(std::stoi(raw->value("SELECT count(*) FROM history")), history_before + 1 - 16);
    EXPECT_LT(with_much - usual, 10000) << "steps: some nine for each row that is dropped";
    change(folder, {{"syslog.rsh.level", "info"}});
    EXPECT_EQ(std::stoi(raw->value("SELECT count(*) FROM journal")), before + 2 - 2000);
    test::report(
        "random old entries in the journal\t300 000, and 100 000 in the history\tdropped 1000 and 16 at "
        "a commit, whose cost stays as it was");
}

// --- who

TEST_F(Transactions, AreSignedByTheCaller) {
    auto transaction = wish({{"syslog.rsh.level", "debug"}});
    transaction.describe("import", "for ticket 7");
    EXPECT_THAT(transaction.commit(folder), IsOk());
    EXPECT_EQ(raw->value("SELECT author FROM history"), current_author());
    EXPECT_EQ(raw->value("SELECT number, kind, account, comment FROM transaction_note"),
              "1|import|" + Caller::current().accounts() + "|for ticket 7");
}

TEST(Author, IsThePersonBehindSuAndSudo) {
    struct Case {
        Caller caller;
        std::string author;
        std::string accounts;
    };
    Case const cases[] = {
        {{"alice", "", ""}, "alice", ""},
        {{"root", "", ""}, "root", ""},
        {{"root", "", "alice"}, "alice", "root"},               // sudo, where nobody notes the login
        {{"root", "alice", "alice"}, "alice", "root"},          // sudo
        {{"netops", "alice", ""}, "alice", "netops"},           // su, or sudo to that account
        {{"root", "alice", "netops"}, "alice", "netops, root"}, // su, then sudo
        {{"root", "root", ""}, "root", ""},
        {{"alice", "alice", ""}, "alice", ""},
    };
    for (auto const& [caller, author, accounts] : cases) {
        EXPECT_EQ(caller.author(), author);
        EXPECT_EQ(caller.accounts(), accounts) << author;
    }
}

TEST(Author, BehindSudoIsBelievedToRootAlone) {
    ASSERT_EQ(setenv("SUDO_USER", "admin", 1), 0);
    EXPECT_EQ(Caller::current().by_sudo, getuid() == 0 ? "admin" : "");
    EXPECT_EQ(Caller::current().user, getpwuid(getuid())->pw_name);
    ASSERT_EQ(unsetenv("SUDO_USER"), 0);
    EXPECT_EQ(Caller::current().by_sudo, "");
}

TEST(Author, WithoutANameIsTheNumber) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root may become another user";
    }
    Child child{[] { return setuid(54321) == 0 && Caller::current().user == "uid 54321" ? 0 : 1; }};
    EXPECT_EQ(child.status(), 0);
}

// --- what is stored

TEST_F(Transactions, EveryStoredRowIsListedWithWhatItIs) {
    raw->run("INSERT INTO setting VALUES('syslog.file.level', 5), ('syslog.file.path', 'x'), "
             "('syslog.remote.2.port', 514), "
             "('module.logconfig.SELF', 1), ('module.snmp.trap', 3.5)");
    auto const stored = stored_settings(folder);
    ASSERT_THAT(stored, IsOk());
    std::vector<std::string> lines;
    for (auto const& row : stored.value()) {
        lines.push_back(fmt::format("{} {} {} {}", row.path,
                                    row.setting == find_setting(row.path) && row.setting != nullptr,
                                    row.allowed, row.value));
    }
    EXPECT_THAT(lines, ElementsAre("module.logconfig.SELF false false 1",
                                   "module.snmp.trap false false the real number 3.5",
                                   "syslog.file.level true true debug", "syslog.file.path true false \"x\"",
                                   "syslog.remote.2.port true true 514"));
}

} // namespace
} // namespace xpon::cfgdb
