// Readers and writers at once: threads on one handle, processes on one database.

#include <atomic>
#include <memory>
#include <set>
#include <thread>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/wait_until.hpp"
#include "readers.hpp"
#include "support.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"
#include "xpon/cfgdb/change_feed.hpp"

namespace xpon::cfgdb {
namespace {

constexpr int writers = 4;
constexpr int commits = 25;

/// Commits; again where the others kept the database locked for as long as a writer waits, since SQLite gives
/// the lock to who asks first.
bool commit(Transaction const& transaction, std::filesystem::path const& folder) {
    auto const was_kept_waiting = testing::HasSubstr("locked by another process");
    bool committed = false;
    std::ignore = test::wait_until([&] {
        auto const changes = transaction.commit(folder);
        committed = changes.has_value();
        return !testing::Matches(test::IsError(core::Error::CommonError, was_kept_waiting))(changes);
    });
    return committed;
}

/// Sets many levels of two modules to one value, again and again, and one of its own to another each time.
int write_many(std::filesystem::path const& folder, int writer) {
    for (int i = 0; i < commits; ++i) {
        auto const level = std::to_string((i + writer) % 6);
        Transaction transaction;
        if (!transaction.set("module.dna.*", level) || !transaction.set("module.fsm_pon.ont.1.1-64", level) ||
            !transaction.set("module.fsm_pon.port." + std::to_string(writer),
                             std::to_string(i % 2 == 0 ? 5 : 4)) ||
            !commit(transaction, folder)) {
            return 1;
        }
    }
    return 0;
}

/// True if in each record all those levels are the same, as every commit leaves them.
bool is_consistent(void const* db) {
    ModuleDna dna{};
    auto fsm = std::make_unique<ModuleFsmPon>();
    if (getRunDb_CommonGCfg_logging_module_dna(db, &dna, all_zero_key) != 0 ||
        getRunDb_CommonGCfg_logging_module_fsm_pon(db, fsm.get(), all_zero_key) != 0) {
        return false;
    }
    return std::set(std::begin(dna.level), std::end(dna.level)).size() == 1 &&
           std::set(std::begin(fsm->ont[0]), std::begin(fsm->ont[0]) + 64).size() == 1;
}

TEST(Concurrency, FourWritersAndTwoReadersOnOneHandleLoseNothingAndSeeWholeCommitsOnly) {
    test::ScratchFolder const scratch;
    auto const folder = scratch / "db";
    Signal begin;
    std::vector<std::unique_ptr<Child>> children;
    for (int writer = 1; writer <= writers; ++writer) {
        children.push_back(
            std::make_unique<Child>([&, writer] { return begin.take() ? write_many(folder, writer) : 1; }));
    }
    CfgDbWrapper const cfgdb{"TEST_CFGDB", folder};
    auto const feed = ChangeFeed::take();
    std::atomic<bool> done = false;
    std::atomic<int> broken = 0;
    std::atomic<int> reads = 0;
    auto const read = [&] {
        while (!done) {
            broken += is_consistent(cfgdb.db()) ? 0 : 1;
            ++reads;
        }
    };
    std::thread one{read};
    std::thread other{read};
    for (int i = 0; i < writers; ++i) {
        begin.give();
    }
    int delivered = 0;
    for (auto const& child : children) {
        EXPECT_EQ(child->status(), 0);
        delivered += static_cast<int>(feed->next().value().size());
    }
    done = true;
    one.join();
    other.join();
    EXPECT_EQ(broken, 0);
    EXPECT_GT(reads, 1);
    EXPECT_GE(delivered, 2);
    EXPECT_THAT(feed->next().value(), testing::IsEmpty());

    RawDatabase const raw{folder / "running.db"};
    EXPECT_EQ(raw.value("SELECT count(DISTINCT number), max(number) FROM history"), "100|100");
    EXPECT_EQ(raw.value("SELECT count(*) = max(sequence) FROM journal"), "1");
    EXPECT_EQ(raw.value("SELECT count(*) FROM history WHERE path LIKE 'module.fsm_pon.port._'"), "100");
}

} // namespace
} // namespace xpon::cfgdb
