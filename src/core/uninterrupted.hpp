#pragma once

#include <cerrno>

namespace xpon::core {

/// Repeats a system call while it fails with EINTR. Returns the result of the last call. A negative result is
/// any other failure, with `errno` as that call set it.
template <class Call>
auto uninterrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

} // namespace xpon::core
