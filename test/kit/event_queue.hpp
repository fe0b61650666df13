#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>

#include "kit/wait_until.hpp"

namespace xpon::test {

/// Hands values from one thread to a test that waits for them.
template <class T>
class EventQueue {
  public:
    void push(T value) {
        {
            std::lock_guard const lock{mutex};
            values.push_back(std::move(value));
        }
        arrived.notify_one();
    }

    /// The oldest value; nothing if none comes until the deadline.
    std::optional<T> pop(std::chrono::milliseconds deadline = default_deadline) {
        std::unique_lock lock{mutex};
        if (!arrived.wait_for(lock, deadline, [this] { return !values.empty(); })) {
            return std::nullopt;
        }
        auto value = std::move(values.front());
        values.pop_front();
        return value;
    }

    bool empty() const {
        std::lock_guard const lock{mutex};
        return values.empty();
    }

  private:
    mutable std::mutex mutex;
    std::condition_variable arrived;
    std::deque<T> values; // guarded by mutex
};

} // namespace xpon::test
