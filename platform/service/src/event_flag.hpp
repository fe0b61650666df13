#pragma once

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <system_error>

#include <sys/eventfd.h>
#include <unistd.h>

#include "core/result.hpp"
#include "core/unique_fd.hpp"

namespace xpon::service {

/// A flag that poll() can wait for. Once raised it stays raised, so that nobody can come too late to see it.
class EventFlag {
  public:
    /// Throws std::system_error if the kernel has no descriptor left.
    EventFlag()
      : descriptor{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)} {
        if (!descriptor) {
            throw std::system_error{errno, std::generic_category(), "eventfd"};
        }
    }

    /// Any number of times, from any thread. Async-signal-safe, allocates nothing, leaves `errno` unchanged.
    core::Result<void> raise() const {
        up = true;
        int const errno_before = errno;
        std::uint64_t const one = 1;
        // EAGAIN: the counter is full, so the flag is raised already.
        bool const written = ::write(fd(), &one, sizeof one) == sizeof one || errno == EAGAIN;
        errno = errno_before;
        if (!written) {
            return core::ErrorPayload{core::Error::CommonError}; // no text, which would be allocated
        }
        return core::success();
    }

    /// What happened before the raising is visible to whoever sees the flag raised.
    bool raised() const { return up; }
    /// Readable once the flag is raised.
    int fd() const { return descriptor.get(); }

  private:
    core::UniqueFd descriptor;            // wakes the thread; the atomic is what publishes memory to it
    mutable std::atomic<bool> up = false; // set before the descriptor is written, perhaps in a signal handler
    static_assert(decltype(up)::is_always_lock_free);
};

} // namespace xpon::service
