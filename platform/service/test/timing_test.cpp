#include "timing.hpp"

#include <gtest/gtest.h>

namespace xpon::service {
namespace {

using namespace std::chrono_literals;

TEST(RetryDelay, DoublesFromOneSecondTo512AndThenIsAnHourForEver) {
    constexpr int seconds[] = {1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 3600, 3600, 3600};
    for (int failed = 0; failed < static_cast<int>(std::size(seconds)); ++failed) {
        EXPECT_EQ(retry_delay(failed).count(), seconds[failed]);
    }
    EXPECT_EQ(retry_delay(std::numeric_limits<int>::max()), 1h);
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
        {now + 1h, 3'600'000},
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
