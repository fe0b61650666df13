#pragma once

#include <atomic>

#include "core/result.hpp"
#include "core/unique_fd.hpp"

namespace xpon::service {

/// A flag that poll() can wait for. Once raised it stays raised, so that nobody can come too late to see it.
class EventFlag {
  public:
    /// Throws std::system_error when the kernel gives no descriptor.
    EventFlag();

    /// Any number of times, from any thread. Async-signal-safe, allocates nothing, leaves `errno` alone.
    core::Result<void> raise() const;

    /// What came before the raising is visible to whoever finds it raised.
    bool raised() const { return up; }

    /// Readable once the flag is raised.
    int fd() const { return descriptor.get(); }

  private:
    core::UniqueFd descriptor;            // wakes; it hands nothing over in the language's eyes
    mutable std::atomic<bool> up = false; // set by any thread or signal handler, before the descriptor
    static_assert(decltype(up)::is_always_lock_free);
};

} // namespace xpon::service
