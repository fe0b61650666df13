// Faults of the database under a running daemon, and what a large one costs.
#include <fstream>
#include <functional>

#include <sys/mount.h>

#include "integration/followed_board.hpp"
#include "integration/torn_file_reader.hpp"
#include "kit/raw_database.hpp"
#include "kit/report.hpp"

namespace xpon::test {
namespace {

using testing::HasSubstr;

std::string const database_file = "/var/lib/xpon/cfgdb/running.db";

class DatabaseFaults : public FollowedBoard {
  protected:
    /// Stops the daemon where it does not read, changes a setting of every output, and brings all of it from
    /// the log into the database file.
    void change_unseen() {
        ASSERT_TRUE(wait_until([&] {
            daemon->process.kill(SIGSTOP);
            if (stands_still() && empty_log()) {
                return true;
            }
            daemon->process.kill(SIGCONT);
            return false;
        }));
        set(a_change_of_every_output("debug"));
        ASSERT_TRUE(empty_log());
    }

    bool stands_still() const {
        return wait_until([&] { return contents(proc() / "status").find("State:\tT") != std::string::npos; });
    }

    /// False while somebody reads.
    static bool empty_log() {
        return RawDatabase{database_file, std::chrono::milliseconds{0}}.number(
                   "PRAGMA wal_checkpoint(TRUNCATE)") == 0;
    }

    static std::map<std::string, std::string> outputs() {
        std::map<std::string, std::string> texts;
        for (auto const& output : log_config::outputs()) {
            texts.emplace(output.path, contents(output.path));
        }
        return texts;
    }

    /// What the daemon has read from files and sockets until now, in bytes.
    std::int64_t bytes_read() const {
        std::istringstream io{contents(proc() / "io")};
        std::string name;
        std::int64_t bytes = 0;
        io >> name >> bytes;
        EXPECT_EQ(name, "rchar:");
        return bytes;
    }

    struct Outcome {
        int status;
        std::string output;
    };

    /// Runs logctl, which has to end in time.
    Outcome logctl(std::vector<std::string> arguments, std::chrono::seconds in_time) {
        auto const output = scratch / fmt::format("logctl.{}", ++started);
        arguments.insert(arguments.begin(), XPON_LOGCTL);
        ChildProcess run{{.argv = arguments, .environment = {}, .output = output}};
        auto const status = run.wait(in_time);
        EXPECT_TRUE(status) << arguments.at(1) << " takes longer than " << in_time.count() << " s";
        return {status.value_or(-1), contents(output)};
    }
};

/// What is done to the database file, and what the daemon's log has to say then.
struct Damage {
    char const* name;
    char const* what;
    char const* how;
    char const* told;
    /// Makes a damaged file of a whole one, given where the pages with the settings and the journal begin.
    std::function<std::string(std::string whole, std::size_t settings, std::size_t journal)> make;
};

void PrintTo(Damage const& damage, std::ostream* stream) {
    *stream << damage.what;
}

class DamagedDatabase : public DatabaseFaults, public testing::WithParamInterface<Damage> {
  protected:
    static constexpr std::size_t page_size = 4096;

    static std::size_t root_page(RawDatabase const& raw, char const* table) {
        auto const number =
            raw.number(fmt::format("SELECT rootpage FROM sqlite_schema WHERE name = '{}'", table));
        return static_cast<std::size_t>(number - 1) * page_size;
    }

    /// Replaces what the file holds, so that whoever has it open sees it.
    static void overwrite(std::string const& bytes) {
        std::fstream{database_file, std::ios::in | std::ios::out | std::ios::binary} << bytes;
        std::filesystem::resize_file(database_file, bytes.size());
    }
};

TEST_P(DamagedDatabase, LeavesTheOutputsAsTheyAreAndIsFollowedOnceItIsMended) {
    auto const& damage = GetParam();
    start_serving();
    TornFileReader reader;
    change_unseen();
    auto const before = outputs();
    auto const whole = read_file(database_file);
    auto const [settings, journal] = [] {
        RawDatabase raw{database_file};
        return std::pair{root_page(raw, "setting"), root_page(raw, "journal")};
    }();
    overwrite(damage.make(whole, settings, journal));
    daemon->process.kill(SIGCONT);
    EXPECT_TRUE(wait_for_text(log_file, damage.told)) << "not told: " << damage.told;
    EXPECT_EQ(outputs(), before);
    overwrite(whole);
    expect_in_step();
    reader.stop();
    EXPECT_THAT(reader.torn, testing::IsEmpty());
    expect_one_life();
    report(fmt::format("{}\t{}\t{}", damage.what, damage.how, damage.told));
}

std::string damaged_at(std::string bytes, std::size_t page) {
    return bytes.replace(page, 4096, 4096, '\xFF');
}

INSTANTIATE_TEST_SUITE_P(
    , DamagedDatabase,
    testing::Values(
        Damage{"Settings", "a damaged page of the settings",
               "overwritten in the open database, put right later", "database disk image is malformed",
               [](auto whole, auto settings, auto) { return damaged_at(whole, settings); }},
        Damage{"Journal", "a damaged page of the journal",
               "overwritten in the open database, put right later", "database disk image is malformed",
               [](auto whole, auto, auto journal) { return damaged_at(whole, journal); }},
        Damage{"Truncated", "a truncated database", "the open file is cut, put right later",
               "database disk image is malformed",
               [](auto whole, auto, auto) { return whole.substr(0, 4096); }},
        Damage{"Emptied", "an emptied database", "the open file is cut to nothing, put right later",
               "Reading the configuration changes failed", [](auto, auto, auto) { return std::string{}; }}),
    [](auto const& tested) { return tested.param.name; });

TEST_F(DatabaseFaults, AFullDiskRefusesTheChangeAndLeavesTheDaemonInStep) {
    std::filesystem::create_directories(database);
    ASSERT_EQ(mount("disk", database, "tmpfs", 0, "size=2m,mode=2770"), 0);
    start_serving();
    expect_in_step();
    auto const before = outputs();
    fill_disk(std::filesystem::path{database} / "filler");
    auto const refused = logctl({"set", "module.fsm_pon.*=debug"}, std::chrono::seconds{20});
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.output, HasSubstr(database_file + ": database or disk is full"));
    EXPECT_EQ(outputs(), before);
    std::filesystem::remove(std::filesystem::path{database} / "filler");
    expect_in_step();
    EXPECT_EQ(outputs(), before) << "nothing of the refused change was stored";
    set({{"module.fsm_pon.*", "debug"}});
    expect_in_step();
    EXPECT_EQ(stop_daemon(), 0);
    report("disk full under the database\ta small file system is filled; the change is refused and made "
           "again\tnothing; no output is delayed");
}

TEST_F(DatabaseFaults, AJournalPrunedPastTheDaemonCostsNoChange) {
    start_serving();
    daemon->process.kill(SIGSTOP);
    set(a_change_of_every_output("debug"));
    RawDatabase{database_file}.run("DELETE FROM journal");
    set({{"module.snmp.TRAP", "notice"}});
    daemon->process.kill(SIGCONT);
    expect_in_step();
    EXPECT_EQ(stop_daemon(), 0);
    report("journal pruned past the daemon\tits rows are removed while the daemon stands still\tnothing; no "
           "output is delayed");
}

TEST_F(DatabaseFaults, AHundredThousandEntriesOfHistoryCostTheDaemonNothingAndLogctlLittle) {
    start_serving();
    auto const read_by_a_change = [this] {
        auto const before = bytes_read();
        wait_until_serving();
        return bytes_read() - before;
    };
    auto const without_history = read_by_a_change();
    {
        RawDatabase raw{database_file};
        // 200 transactions of 500 settings, few enough to be kept.
        raw.run("WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < 99999), "
                "newest AS (SELECT ifnull(max(number), 0) AS number FROM history) "
                "INSERT INTO history(number, at, author, path, old, new) "
                "SELECT newest.number + 1 + i / 500, strftime('%s'), 'test', 'module.switch.SELF', "
                "iif(i % 2, 'debug', 'notice'), iif(i % 2, 'notice', 'debug') FROM n, newest");
        raw.run("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 100000) "
                "INSERT INTO journal(field_id, at) SELECT 78, strftime('%s') FROM n");
    }
    ASSERT_GT(std::filesystem::file_size(database_file), 5'000'000);
    wait_until_serving(); // the long journal has been read
    wait_until_serving(); // and what it caused is done: every output was compared with its file

    EXPECT_LT(read_by_a_change(), without_history + 500'000) << "bytes";

    auto const in_time = std::chrono::seconds{15};
    auto const all = logctl({"history", "--full"}, in_time);
    EXPECT_EQ(all.status, 0);
    EXPECT_GT(std::ranges::count(all.output, '\n'), 100000);
    EXPECT_EQ(logctl({"history", "--limit", "3"}, in_time).status, 0);
    EXPECT_EQ(logctl({"show", "syslog", "module.snmp"}, in_time).status, 0);

    set({{"module.switch.SELF", "error"}});
    auto const newest = RawDatabase{database_file}.number("SELECT max(number) FROM history");
    EXPECT_GT(newest, 200);
    auto const undone = logctl({"rollback", std::to_string(newest - 1)}, in_time);
    EXPECT_EQ(undone.status, 0);
    EXPECT_EQ(undone.output, "module.switch.SELF: error -> notice\n");
    expect_in_step();
    EXPECT_EQ(RawDatabase{database_file}.number("SELECT count(*) > 100000 FROM history"), 1);
    EXPECT_EQ(stop_daemon(), 0);
}

} // namespace
} // namespace xpon::test
