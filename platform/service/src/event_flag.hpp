#pragma once

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

    bool raised() const;

    /// Readable once the flag is raised.
    int fd() const { return descriptor.get(); }

  private:
    core::UniqueFd descriptor;
};

} // namespace xpon::service
