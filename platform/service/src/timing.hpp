#pragma once

#include <algorithm>
#include <chrono>
#include <limits>

namespace xpon::service {

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;

/// Due times of something that is not due at all, and of something that need not wait.
inline constexpr TimePoint never = TimePoint::max();
inline constexpr TimePoint at_once = TimePoint::min();

/// The number of retries after 1, 2, 4 ... 512 s; later ones come once an hour.
inline constexpr int early_retries = 10;

/// The wait before the retry that follows this many failed ones.
constexpr std::chrono::seconds retry_delay(int failed_retries) {
    return failed_retries < early_retries ? std::chrono::seconds{1U << static_cast<unsigned>(failed_retries)}
                                          : std::chrono::hours{1};
}

/// The timeout in milliseconds with which poll() returns when something is due, never earlier.
constexpr int poll_timeout(TimePoint due, TimePoint now) {
    if (due == never) {
        return -1;
    }
    if (due <= now) {
        return 0;
    }
    constexpr std::chrono::milliseconds longest{std::numeric_limits<int>::max()};
    return static_cast<int>(
        std::min(std::chrono::ceil<std::chrono::milliseconds>(due - now), longest).count());
}

} // namespace xpon::service
