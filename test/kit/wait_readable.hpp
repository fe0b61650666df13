#pragma once

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <system_error>

#include <poll.h>

#include "kit/wait_until.hpp"

namespace xpon::test {

/// The time left until then; never negative.
inline std::chrono::milliseconds time_left(std::chrono::steady_clock::time_point end) {
    using namespace std::chrono;
    return std::max(ceil<milliseconds>(end - steady_clock::now()), milliseconds{0});
}

/// Waits until the descriptor is readable; false at the deadline.
inline bool wait_readable(int fd, std::chrono::milliseconds deadline = default_deadline) {
    auto const end = std::chrono::steady_clock::now() + deadline;
    for (;;) {
        pollfd wanted{fd, POLLIN, 0};
        int const ready = poll(&wanted, 1, static_cast<int>(time_left(end).count()));
        if (ready >= 0) {
            return ready > 0;
        }
        if (errno != EINTR) {
            throw std::system_error{errno, std::generic_category(), "poll"};
        }
    }
}

} // namespace xpon::test
