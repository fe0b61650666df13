#include "event_flag.hpp"

#include <cerrno>
#include <cstdint>
#include <system_error>

#include <poll.h>
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
    int const errno_before = errno;
    std::uint64_t const one = 1;
    // EAGAIN: the counter is full, so the flag is raised already.
    bool const raised = ::write(fd(), &one, sizeof one) == sizeof one || errno == EAGAIN;
    errno = errno_before;
    if (!raised) {
        return core::ErrorPayload{core::Error::CommonError}; // no text: making one would allocate
    }
    return core::success();
}

bool EventFlag::raised() const {
    pollfd watched{fd(), POLLIN, 0};
    return ::poll(&watched, 1, 0) > 0;
}

} // namespace xpon::service
