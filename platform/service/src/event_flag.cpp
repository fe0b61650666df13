#include "event_flag.hpp"

#include <cerrno>
#include <cstdint>
#include <system_error>

#include <sys/eventfd.h>
#include <unistd.h>

namespace xpon::service {

EventFlag::EventFlag()
  : descriptor{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)} {
    if (!descriptor) {
        throw std::system_error{errno, std::generic_category(), "eventfd"};
    }
}

core::Result<void> EventFlag::raise() const {
    up = true;
    int const errno_before = errno;
    std::uint64_t const one = 1;
    // EAGAIN: the counter is full, so the flag is raised already.
    bool const written = ::write(fd(), &one, sizeof one) == sizeof one || errno == EAGAIN;
    errno = errno_before;
    if (!written) {
        return core::ErrorPayload{core::Error::CommonError}; // no text: making one would allocate
    }
    return core::success();
}

} // namespace xpon::service
