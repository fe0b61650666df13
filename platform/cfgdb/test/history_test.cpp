#include "xpon/cfgdb/history.hpp"

#include <ctime>

#include <gmock/gmock.h>

#include "support.hpp"
#include "xpon/cfgdb/change_feed.hpp"

namespace xpon::cfgdb {
namespace {

using core::Error;
using test::IsError;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class History : public DatabaseFolder {
  protected:
    std::vector<std::string> entries(std::int64_t after = 0) const {
        std::vector<std::string> texts;
        auto const all = history(folder, after).value();
        for (auto const& transaction : all) {
            for (auto const& [path, old_value, new_value] : transaction.changes) {
                texts.push_back(fmt::format("{} {} {}: {} -> {}", transaction.number, transaction.author,
                                            path, old_value, new_value));
            }
        }
        return texts;
    }
};

TEST_F(History, TellsWhoChangedWhatOldestFirst) {
    auto const before = std::time(nullptr);
    change(folder, {{"syslog.rsh.level", "debug"}, {"module.snmp.TRAP", "error"}}, "admin");
    change(folder, {{"syslog.rsh.level", "info"}}, "bert");
    EXPECT_THAT(entries(), ElementsAre("1 admin syslog.rsh.level: notice -> debug",
                                       "1 admin module.snmp.TRAP: notice -> error",
                                       "2 bert syslog.rsh.level: debug -> info"));
    EXPECT_THAT(entries(1), ElementsAre("2 bert syslog.rsh.level: debug -> info"));
    EXPECT_THAT(entries(2), IsEmpty());
    auto const all = history(folder).value();
    EXPECT_GE(all.front().time, before);
    EXPECT_LE(all.back().time, std::time(nullptr));
}

TEST_F(History, TellsHowAndWhyWhereThatIsKnown) {
    auto transaction = wish({{"syslog.rsh.level", "debug"}});
    EXPECT_THAT(transaction.commit(folder), test::IsOk());
    transaction = wish({{"syslog.rsh.level", "info"}});
    transaction.describe("rollback", "to\tthe old");
    EXPECT_THAT(transaction.commit(folder), test::IsOk());
    RawDatabase{file}.run(
        "INSERT INTO history SELECT 9, 3, at, author, path, old, new FROM history WHERE number = 1");
    auto const all = history(folder).value();
    std::vector<std::string> texts;
    for (auto const& past : all) {
        texts.push_back(fmt::format("{} {}|{}", past.number, past.kind, past.comment));
        EXPECT_EQ(past.account, past.number == 3 ? "" : Caller::current().accounts());
    }
    EXPECT_THAT(texts, ElementsAre("1 set|", R"(2 rollback|"to\x09the old")", "3 |"));
    RawDatabase{file}.run("DROP TABLE transaction_note"); // as in a database of the first release
    EXPECT_EQ(history(folder).value().front().kind, "");
}

TEST_F(History, IsSafeToPrint) {
    change(folder, {{"syslog.rsh.level", "debug"}}, "an\x1b[31mna\n");
    EXPECT_THAT(entries(), ElementsAre(R"(1 "an\x1b[31mna\x0a" syslog.rsh.level: notice -> debug)"));
}

TEST_F(History, OfNoDatabaseIsAnError) {
    EXPECT_THAT(history(folder), IsError(Error::CommonError, HasSubstr(file.string())));
    EXPECT_FALSE(std::filesystem::exists(folder));
}

TEST_F(History, AFeedOpenedForItWakesAndHandsOutWhatIsCommittedAfterwards) {
    change(folder, {{"syslog.rsh.level", "debug"}});
    auto const feed = ChangeFeed::open(folder).value();
    EXPECT_THAT(feed->next().value(), IsEmpty());
    EXPECT_FALSE(is_readable(feed->fd()));
    change(folder, {{"syslog.rsh.level", "info"}});
    EXPECT_TRUE(test::wait_readable(feed->fd()));
    auto const changes = feed->next().value();
    ASSERT_EQ(changes.size(), 1U);
    EXPECT_EQ(changes.front().field_id, 56U);
    EXPECT_EQ(ChangeFeed::take(), nullptr);
}

TEST_F(History, AFeedOfNoDatabaseIsAnError) {
    EXPECT_THAT(ChangeFeed::open(folder), IsError(Error::CommonError, HasSubstr("running.db")));
    EXPECT_FALSE(std::filesystem::exists(folder));
}

} // namespace
} // namespace xpon::cfgdb
