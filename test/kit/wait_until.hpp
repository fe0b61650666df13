#pragma once

#include <chrono>
#include <thread>

namespace xpon::test {

inline constexpr std::chrono::seconds default_deadline{20};

/// Waits for a state of another process or thread that announces itself by nothing else; true once it holds,
/// false at the deadline. Where the event has a descriptor or a future, wait for that instead.
template <class Condition>
bool wait_until(Condition holds, std::chrono::milliseconds deadline = default_deadline) {
    auto const end = std::chrono::steady_clock::now() + deadline;
    for (;;) {
        bool const over = std::chrono::steady_clock::now() >= end;
        if (holds()) { // looked at after the deadline too: the machine may have stood still
            return true;
        }
        if (over) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds{1});
    }
}

} // namespace xpon::test
