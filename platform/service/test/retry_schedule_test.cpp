#include "retry_schedule.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/fake_logger.hpp"

namespace xpon::service {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr auto start = TimePoint{1000h};

/// What is due, as a list of at most one.
std::vector<Config_change> due(RetrySchedule const& schedule, TimePoint now) {
    auto const change = schedule.due(now);
    return change ? std::vector{*change} : std::vector<Config_change>{};
}

auto field(std::uint32_t id) {
    return ElementsAre(testing::Field(&Config_change::field_id, id));
}

Config_change change(std::uint32_t field_id, std::uint32_t sequence = 0) {
    return {field_id, 0, sequence};
}

struct RetryScheduleTest : testing::Test {
    test::FakeLogger logger;
    RetrySchedule schedule{logger};
    core::ErrorPayload const error{core::Error::CommonError};
};

TEST_F(RetryScheduleTest, EmptyMeansNothingIsDueEver) {
    EXPECT_THAT(due(schedule, start), IsEmpty());
    EXPECT_EQ(schedule.next_due(), never);
}

TEST_F(RetryScheduleTest, TriesTenTimesEachTimeAfterTwiceTheWaitAndThenEveryHour) {
    auto now = start;
    for (auto const wait : {1s, 2s, 4s, 8s, 16s, 32s, 64s, 128s, 256s, 512s, 3600s, 3600s, 3600s, 3600s}) {
        schedule.failed(change(58), error, now);
        EXPECT_EQ(schedule.next_due(), now + wait);
        EXPECT_THAT(due(schedule, now + wait - 1ns), IsEmpty()) << wait.count();
        EXPECT_THAT(due(schedule, now + wait), field(58U));
        now += wait + 3s; // the try itself takes its time: the wait counts from its end
    }
}

TEST_F(RetryScheduleTest, ASuccessEndsTheRetries) {
    schedule.failed(change(58), error, start);
    schedule.failed(change(58), error, start + 1s);
    schedule.succeeded(58);
    EXPECT_EQ(schedule.next_due(), never);
    schedule.succeeded(58); // not waiting: harmless
    schedule.failed(change(58), error, start);
    EXPECT_EQ(schedule.next_due(), start + 1s);
}

TEST_F(RetryScheduleTest, ASupersededFieldIsNotRetriedAndStartsAnewWithItsNewChange) {
    schedule.failed(change(58, 1), error, start);
    schedule.failed(change(58, 1), error, start + 1s);
    schedule.superseded(58);
    schedule.superseded(59); // not waiting: harmless
    EXPECT_EQ(schedule.next_due(), never);
    EXPECT_THAT(due(schedule, start + 1h), IsEmpty());
    schedule.failed(change(58, 2), error, start + 5s);
    EXPECT_EQ(schedule.next_due(), start + 6s);
    EXPECT_THAT(due(schedule, start + 6s), ElementsAre(testing::Field(&Config_change::sequence, 2U)));
    schedule.failed(change(58, 2), error, start + 6s);
    EXPECT_EQ(schedule.next_due(), start + 8s);
}

TEST_F(RetryScheduleTest, EachReasonIsToldOncePerFieldAndSoIsTheEnd) {
    core::ErrorPayload const other{core::Error::ErrorCApi};
    for (int i = 0; i < 20; ++i) {
        schedule.failed(change(58), error, start);
        schedule.failed(change(59), other, start);
    }
    schedule.superseded(58);
    schedule.failed(change(58), error, start);
    schedule.failed(change(58), other, start);
    schedule.failed(change(58), other, start);
    schedule.succeeded(58);
    schedule.succeeded(58);
    EXPECT_THAT(logger.texts(), ElementsAre("config_change of module.alarmmgr failed: Error: CommonError",
                                            "config_change of module.dna failed: Error: ErrorCApi",
                                            "config_change of module.alarmmgr failed: Error: ErrorCApi",
                                            "config_change of module.alarmmgr works again"));
}

TEST_F(RetryScheduleTest, AChangedDatabaseEndsTheWaitOfFieldsThatCouldNotBeRead) {
    core::ErrorPayload const unreadable{core::Error::ErrorCApi};
    schedule.failed(change(52), error, start);
    schedule.failed(change(58), unreadable, start);
    schedule.failed(change(60), unreadable, start);
    schedule.superseded(60);
    schedule.database_changed();
    EXPECT_THAT(due(schedule, start), field(58));
    schedule.failed(change(58), unreadable, start);
    EXPECT_THAT(due(schedule, start), IsEmpty()) << "once for each change of the database";
    EXPECT_THAT(due(schedule, start + 2s), field(52)) << "waits as before";
    schedule.succeeded(52);
    EXPECT_THAT(due(schedule, start + 2s), field(58)) << "after twice the wait";
}

TEST_F(RetryScheduleTest, FieldsWaitIndependentlyAndTheLongestDueComesFirst) {
    schedule.failed(change(58), error, start);
    schedule.failed(change(59), error, start + 200ms);
    EXPECT_EQ(schedule.next_due(), start + 1s);
    EXPECT_THAT(due(schedule, start + 5s), field(58U));
    schedule.failed(change(58), error, start + 5s);
    EXPECT_THAT(due(schedule, start + 5s), field(59U));
    schedule.succeeded(59);
    EXPECT_THAT(due(schedule, start + 5s), IsEmpty());
    EXPECT_EQ(schedule.next_due(), start + 7s);
}

TEST_F(RetryScheduleTest, FieldsDueTogetherComeInTheOrderOfTheirFailure) {
    for (std::uint32_t const id : {71U, 58U, 60U}) {
        schedule.failed(change(id), error, start);
    }
    for (std::uint32_t const id : {71U, 58U, 60U}) {
        EXPECT_THAT(due(schedule, start + 1s), field(id));
        schedule.succeeded(id);
    }
}

} // namespace
} // namespace xpon::service
