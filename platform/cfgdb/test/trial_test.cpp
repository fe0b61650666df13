#include "xpon/cfgdb/trial.hpp"

#include <gmock/gmock.h>

#include "support.hpp"
#include "xpon/cfgdb/change_feed.hpp"
#include "xpon/cfgdb/history.hpp"

namespace xpon::cfgdb {
namespace {

using core::Error;
using test::IsError;
using test::IsOk;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using Settings = std::vector<std::pair<std::string, std::string>>;

class Trials : public DatabaseFolder {
  protected:
    void SetUp() override { change(folder, {{"syslog.rsh.level", "info"}}); }

    core::Result<StartedTrial> on_trial(Settings const& settings, std::int64_t seconds = 60) const {
        return commit_trial(wish(settings), {BootInstant::in(seconds), false, "a timer"}, folder, "admin");
    }

    /// "number: path=value put back ..." of each pending trial.
    std::vector<std::string> pending() const {
        std::vector<std::string> texts;
        auto const trials = pending_trials(folder).value();
        for (auto const& trial : trials) {
            texts.push_back(fmt::format("{}:", trial.number));
            for (auto const& [path, before] : trial.settings) {
                texts.back() += fmt::format(" {}={}", path, before);
            }
        }
        return texts;
    }

    std::vector<std::string> history_after(std::int64_t number) const {
        std::vector<std::string> texts;
        auto const all = history(folder, number).value();
        for (auto const& transaction : all) {
            for (auto const& [path, old_value, new_value] : transaction.changes) {
                texts.push_back(fmt::format("{} {} {}: {} -> {}", transaction.number, transaction.author,
                                            path, old_value, new_value));
            }
        }
        return texts;
    }
};

TEST_F(Trials, ArePendingUntilTheyAreConfirmed) {
    EXPECT_THAT(pending(), IsEmpty());
    auto const started = on_trial({{"syslog.rsh.level", "debug"}});
    ASSERT_THAT(started, IsOk());
    EXPECT_EQ(started.value().number, 2);
    EXPECT_EQ(started.value().changes.size(), 1U);
    EXPECT_THAT(pending(), ElementsAre("2: syslog.rsh.level=info"));
    auto const trial = pending_trials(folder).value().front();
    EXPECT_EQ(trial.author, "admin");
    EXPECT_EQ(trial.terms.timer, "a timer");
    EXPECT_FALSE(trial.terms.temporary);
    EXPECT_FALSE(trial.terms.end.over());
    auto const feed = ChangeFeed::open(folder).value();
    EXPECT_EQ(confirm_trial(2, folder, "bert").value().number, 2);
    EXPECT_TRUE(test::wait_readable(feed->fd()));
    EXPECT_THAT(pending(), IsEmpty());
    EXPECT_THAT(stored(), ElementsAre("syslog.rsh.level=debug"));
    auto const not_pending = IsError(Error::Empty, "no trial 2 is pending; see: logctl trials");
    EXPECT_THAT(confirm_trial(2, folder), not_pending);
    EXPECT_THAT(abort_trial(2, folder), not_pending);
    EXPECT_THAT(end_overdue_trial(2, folder), not_pending);
    EXPECT_THAT(extend_trial(2, BootInstant::in(9), "", folder), not_pending);
}

TEST_F(Trials, AreUndoneButForWhatOthersHaveChangedSince) {
    EXPECT_THAT(on_trial({{"syslog.*.level", "debug"}}), IsOk());
    change(folder, {{"syslog.kernel.level", "critical"}, {"module.snmp.TRAP", "error"}});
    auto const ended = abort_trial(2, folder, "bert").value();
    EXPECT_EQ(ended.undone.size(), 4U);
    EXPECT_THAT(ended.left, IsEmpty());
    EXPECT_THAT(stored(), ElementsAre("module.snmp.TRAP=error", "syslog.kernel.level=critical",
                                      "syslog.rsh.level=info"));
    EXPECT_THAT(pending(), IsEmpty());
}

TEST_F(Trials, OfWhichNothingIsLeftAreOver) {
    EXPECT_THAT(on_trial({{"syslog.rsh.level", "debug"}}), IsOk());
    change(folder, {{"syslog.rsh.level", "critical"}});
    EXPECT_THAT(pending(), IsEmpty());
    EXPECT_THAT(stored(), ElementsAre("syslog.rsh.level=critical"));
}

TEST_F(Trials, ASettingLeavesItsTrialAlsoWithTheSameValue) {
    EXPECT_THAT(on_trial({{"syslog.rsh.level", "debug"}, {"syslog.kernel.level", "debug"}}), IsOk());
    EXPECT_THAT(change(folder, {{"syslog.rsh.level", "debug"}}, "bert"),
                ElementsAre("syslog.rsh.level: debug -> debug"));
    EXPECT_THAT(history_after(2), ElementsAre("3 bert syslog.rsh.level: debug -> debug"));
    EXPECT_THAT(pending(), ElementsAre("2: syslog.kernel.level=warning"));
    EXPECT_THAT(change(folder, {{"syslog.rsh.level", "debug"}}), IsEmpty()); // once is enough
    EXPECT_THAT(abort_trial(2, folder), IsOk());
    EXPECT_THAT(stored(), ElementsAre("syslog.rsh.level=debug"));
}

TEST_F(Trials, ALaterValueIsKeptThoughItEqualsThatOfTheTrial) {
    EXPECT_THAT(on_trial({{"syslog.rsh.level", "debug"}, {"syslog.kernel.level", "debug"}}), IsOk());
    change(folder, {{"syslog.rsh.level", "error"}});
    change(folder, {{"syslog.rsh.level", "debug"}});
    EXPECT_THAT(abort_trial(2, folder), IsOk());
    EXPECT_THAT(stored(), ElementsAre("syslog.rsh.level=debug"));
}

TEST_F(Trials, MayBeSeveralWithoutACommonSetting) {
    EXPECT_THAT(on_trial({{"syslog.rsh.level", "debug"}}), IsOk());
    EXPECT_THAT(on_trial({{"syslog.kernel.level", "debug"}}), IsOk());
    EXPECT_THAT(on_trial({{"syslog.*.level", "critical"}}),
                IsError(Error::Already, "syslog.rsh.level: on trial 2 of admin; end that first: logctl "
                                        "confirm 2 or logctl abort 2"));
    EXPECT_THAT(on_trial({{"syslog.rsh.level", "debug"}}),
                IsError(Error::Already, HasSubstr("on trial 2"))); // the same value, too
    EXPECT_THAT(pending(), ElementsAre("2: syslog.rsh.level=info", "3: syslog.kernel.level=warning"));
    EXPECT_THAT(stored(), ElementsAre("syslog.kernel.level=debug", "syslog.rsh.level=debug"));
    EXPECT_THAT(abort_trial(2, folder), IsOk());
    EXPECT_THAT(confirm_trial(3, folder), IsOk());
    EXPECT_THAT(stored(), ElementsAre("syslog.kernel.level=debug", "syslog.rsh.level=info"));
}

TEST_F(Trials, ThatChangeNothingAreNone) {
    EXPECT_THAT(on_trial({{"syslog.rsh.level", "info"}}).value().changes, IsEmpty());
    EXPECT_THAT(pending(), IsEmpty());
}

TEST_F(Trials, EndByThemselvesOnlyWhenTheirTimeIsOver) {
    EXPECT_THAT(on_trial({{"syslog.rsh.level", "debug"}}), IsOk());
    EXPECT_THAT(end_overdue_trial(2, folder),
                IsError(Error::InvalidState, "the time of trial 2 is not over"));
    EXPECT_EQ(extend_trial(2, BootInstant::in(0), "another", folder).value().terms.timer, "a timer");
    auto const over = IsError(Error::InvalidState, "the time of trial 2 is over");
    EXPECT_THAT(confirm_trial(2, folder), over);
    EXPECT_THAT(extend_trial(2, BootInstant::in(60), "", folder), over);
    EXPECT_EQ(end_overdue_trial(2, folder).value().trial.terms.timer, "another");
    EXPECT_THAT(history_after(2), ElementsAre("3 admin syslog.rsh.level: debug -> info"));
    EXPECT_THAT(stored(), ElementsAre("syslog.rsh.level=info"));
}

TEST_F(Trials, NeedNoHistoryToBeUndone) {
    EXPECT_THAT(on_trial({{"syslog.rsh.level", "debug"}}), IsOk());
    RawDatabase{file}.run("DELETE FROM history");
    EXPECT_THAT(abort_trial(2, folder), IsOk());
    EXPECT_THAT(stored(), ElementsAre("syslog.rsh.level=info"));
}

TEST_F(Trials, AReceiverThatAnotherOneHasBecomeIsLeftWhole) {
    change(folder, {{"syslog.remote.1.address", "192.0.2.1"}, {"syslog.remote.1.port", "1000"}});
    EXPECT_THAT(on_trial({{"syslog.remote.1.address", "192.0.2.9"},
                          {"syslog.remote.1.port", "2000"},
                          {"syslog.remote.2.address", "192.0.2.2"},
                          {"syslog.rsh.level", "debug"}}),
                IsOk());
    change(folder, {{"syslog.remote.3.address", "192.0.2.1"}, {"syslog.remote.3.port", "1000"}});
    auto const ended = abort_trial(3, folder).value();
    EXPECT_THAT(ended.left, ElementsAre("syslog.remote.1.address", "syslog.remote.1.port"));
    EXPECT_THAT(stored(), ElementsAre("syslog.remote.1.address=192.0.2.9", "syslog.remote.1.port=2000",
                                      "syslog.remote.3.address=192.0.2.1", "syslog.remote.3.port=1000",
                                      "syslog.rsh.level=info"));
    EXPECT_THAT(pending(), IsEmpty());
}

TEST_F(Trials, ReceiversThatHaveChangedPlacesGoBack) {
    Settings const before{{"syslog.remote.1.address", "192.0.2.1"}, {"syslog.remote.2.address", "192.0.2.2"}};
    change(folder, before);
    EXPECT_THAT(
        on_trial({{"syslog.remote.1.address", "192.0.2.2"}, {"syslog.remote.2.address", "192.0.2.1"}}),
        IsOk());
    EXPECT_THAT(abort_trial(3, folder).value().left, IsEmpty());
    EXPECT_THAT(change(folder, before), IsEmpty());
}

TEST_F(Trials, AReceiverThatGoesBackMakesRoomForAnother) {
    change(folder, {{"syslog.remote.1.address", "192.0.2.1"}, {"syslog.remote.2.address", "192.0.2.2"}});
    EXPECT_THAT(on_trial({{"syslog.remote.1.address", "192.0.2.8"},
                          {"syslog.remote.2.address", "192.0.2.1"},
                          {"syslog.remote.3.address", "192.0.2.3"},
                          {"syslog.remote.3.port", "700"}}),
                IsOk());
    change(folder, {{"syslog.remote.3.address", "192.0.2.8"}});
    // The third is on trial with its port alone now; with 514 it fits once the first has left its place.
    EXPECT_THAT(abort_trial(3, folder).value().left, IsEmpty());
    EXPECT_THAT(stored(),
                ElementsAre("syslog.remote.1.address=192.0.2.1", "syslog.remote.2.address=192.0.2.2",
                            "syslog.remote.3.address=192.0.2.8", "syslog.rsh.level=info"));
}

TEST_F(Trials, ThatAnOlderProgramHasStartedAreTakenOver) {
    change(folder, {{"syslog.rsh.level", "debug"}, {"syslog.kernel.level", "debug"}}, "admin");
    change(folder, {{"syslog.kernel.level", "error"}});
    RawDatabase const raw{file};
    raw.run("DROP TABLE pending; DROP TABLE on_trial; DROP TABLE transaction_note");
    EXPECT_THAT(pending(), IsEmpty());
    raw.run("CREATE TABLE trial(number INTEGER PRIMARY KEY, boot TEXT NOT NULL, until INTEGER NOT NULL, "
            "author TEXT NOT NULL)");
    EXPECT_THAT(pending(), IsEmpty());
    raw.run("INSERT INTO trial VALUES(2, 'b', 7, 'admin')");
    EXPECT_THAT(pending(), ElementsAre("2:")); // reading needs no right to write
    change(folder, {{"module.snmp.TRAP", "error"}});
    EXPECT_THAT(pending(), ElementsAre("2: syslog.rsh.level=info"));
    auto const trial = pending_trials(folder).value().front();
    EXPECT_EQ(trial.terms.end.boot, "b");
    EXPECT_EQ(trial.terms.end.seconds, 7);
    EXPECT_EQ(trial.author, "admin");
    EXPECT_THAT(end_overdue_trial(2, folder), IsOk());
    EXPECT_THAT(stored(),
                ElementsAre("module.snmp.TRAP=error", "syslog.kernel.level=error", "syslog.rsh.level=info"));
    EXPECT_EQ(raw.value("PRAGMA user_version"), "1"); // older programs go on reading
}

TEST_F(Trials, SettlingChangesNothingAndWritesALog) {
    EXPECT_THAT(on_trial({{"syslog.rsh.level", "debug"}}), IsOk());
    auto const reader = ChangeFeed::open(folder).value(); // as long as somebody has it open, the log grows
    auto const log = folder / "running.db-wal";
    auto const before = std::filesystem::file_size(log);
    EXPECT_THAT(settle(folder), IsOk());
    EXPECT_GT(std::filesystem::file_size(log), before);
    EXPECT_THAT(pending(), ElementsAre("2: syslog.rsh.level=info"));
    EXPECT_EQ(RawDatabase{file}.value("PRAGMA user_version"), "1");
    EXPECT_THAT(reader->next().value(), IsEmpty());
}

TEST(BootInstants, AreOverWhenReachedAndAfterAReboot) {
    EXPECT_FALSE(BootInstant::in(60).over());
    EXPECT_TRUE(BootInstant::in(0).over());
    auto const now = BootInstant::in(60);
    EXPECT_TRUE((BootInstant{"another", now.seconds}.over()));
    EXPECT_EQ((BootInstant{"another", now.seconds}.left()), 0);
    EXPECT_FALSE((BootInstant{"", now.seconds}.over())); // nobody knows of which boot
    EXPECT_TRUE((BootInstant{"", 0}.over()));
    EXPECT_GT(now.left(), 0);
    EXPECT_LE(now.left(), 60);
}

} // namespace
} // namespace xpon::cfgdb
