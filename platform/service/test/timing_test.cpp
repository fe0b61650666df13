#include "timing.hpp"

#include <gtest/gtest.h>

namespace xpon::service {
namespace {

using namespace std::chrono_literals;

TEST(RetryDelay, DoublesFromOneSecondTo512) {
    constexpr int seconds[] = {1, 2, 4, 8, 16, 32, 64, 128, 256, 512};
    static_assert(std::size(seconds) == retry_limit);
    for (int failed = 0; failed < retry_limit; ++failed) {
        EXPECT_EQ(retry_delay(failed).count(), seconds[failed]);
    }
}

TEST(RetryDelay, StaysAtTheLongestWait) {
    EXPECT_EQ(retry_delay(retry_limit), 512s);
    EXPECT_EQ(retry_delay(std::numeric_limits<int>::max()), 512s);
}

TEST(PollTimeout, IsInMillisecondsAndNeverReturnsTooEarly) {
    constexpr auto now = TimePoint{100h};
    constexpr std::pair<TimePoint, int> cases[] = {
        {never, -1},
        {at_once, 0},
        {now - 1h, 0},
        {now, 0},
        {now + 1ns, 1},
        {now + 1ms, 1},
        {now + 1ms + 1ns, 2},
        {now + 512s, 512'000},
        {now + 24h * 365, std::numeric_limits<int>::max()},
    };
    for (auto const& [due, timeout] : cases) {
        EXPECT_EQ(poll_timeout(due, now), timeout) << (due - now).count();
    }
}

TEST(PollTimeout, WithNothingDueThereIsNoTimer) {
    EXPECT_EQ(poll_timeout(std::min({never, never, never}), Clock::now()), -1);
}

} // namespace
} // namespace xpon::service
