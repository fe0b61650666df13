#include "retry_schedule.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

TEST(RetrySchedule, EmptyMeansNothingIsDueEver) {
    RetrySchedule const schedule;
    EXPECT_THAT(due(schedule, start), IsEmpty());
    EXPECT_EQ(schedule.next_due(), never);
}

TEST(RetrySchedule, TriesTenTimesEachTimeAfterTwiceTheWait) {
    RetrySchedule schedule;
    auto now = start;
    schedule.add(change(58), now);
    constexpr std::chrono::seconds waits[] = {1s, 2s, 4s, 8s, 16s, 32s, 64s, 128s, 256s, 512s};
    for (auto const wait : waits) {
        EXPECT_EQ(schedule.next_due(), now + wait);
        EXPECT_THAT(due(schedule, now + wait - 1ns), IsEmpty()) << wait.count();
        EXPECT_THAT(due(schedule, now + wait), field(58U));
        now += wait + 3s; // the try itself takes its time: the wait counts from its end
        EXPECT_EQ(schedule.failed(58, now), wait != 512s) << wait.count();
    }
    EXPECT_EQ(schedule.next_due(), never);
}

TEST(RetrySchedule, ASuccessEndsTheRetries) {
    RetrySchedule schedule;
    schedule.add(change(58), start);
    ASSERT_TRUE(schedule.failed(58, start + 1s));
    schedule.succeeded(58);
    EXPECT_EQ(schedule.next_due(), never);
    schedule.succeeded(58); // not waiting: harmless
}

TEST(RetrySchedule, AFieldThatIsAddedAgainStartsAnewWithItsNewChange) {
    RetrySchedule schedule;
    schedule.add(change(58, 1), start);
    ASSERT_TRUE(schedule.failed(58, start + 1s));
    ASSERT_TRUE(schedule.failed(58, start + 3s));
    schedule.add(change(58, 2), start + 5s);
    EXPECT_EQ(schedule.next_due(), start + 6s);
    EXPECT_THAT(due(schedule, start + 6s), ElementsAre(testing::Field(&Config_change::sequence, 2U)));
    for (int retry = 1; retry < retry_limit; ++retry) {
        EXPECT_TRUE(schedule.failed(58, start + 6s)) << retry;
    }
    EXPECT_FALSE(schedule.failed(58, start + 6s));
}

TEST(RetrySchedule, FieldsWaitIndependentlyAndTheLongestDueComesFirst) {
    RetrySchedule schedule;
    schedule.add(change(58), start);
    schedule.add(change(59), start + 200ms);
    EXPECT_EQ(schedule.next_due(), start + 1s);
    EXPECT_THAT(due(schedule, start + 5s), field(58U));
    ASSERT_TRUE(schedule.failed(58, start + 5s));
    EXPECT_THAT(due(schedule, start + 5s), field(59U));
    schedule.succeeded(59);
    EXPECT_THAT(due(schedule, start + 5s), IsEmpty());
    EXPECT_EQ(schedule.next_due(), start + 7s);
}

TEST(RetrySchedule, FieldsDueTogetherComeInTheOrderOfTheirFailure) {
    RetrySchedule schedule;
    for (std::uint32_t const id : {71U, 58U, 60U}) {
        schedule.add(change(id), start);
    }
    for (std::uint32_t const id : {71U, 58U, 60U}) {
        EXPECT_THAT(due(schedule, start + 1s), field(id));
        schedule.succeeded(id);
    }
}

TEST(RetrySchedule, AFailureOfAFieldThatIsNotWaitingSchedulesNothing) {
    RetrySchedule schedule;
    EXPECT_FALSE(schedule.failed(58, start));
    EXPECT_EQ(schedule.next_due(), never);
}

} // namespace
} // namespace xpon::service
