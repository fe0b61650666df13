#pragma once

#include <cerrno>

namespace xpon::core {

/// Repeats a system call for as long as signals interrupt it. The result is that of the last call, which is
/// below 0 for any other failure, with `errno` as that call left it.
template <class Call>
auto uninterrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

} // namespace xpon::core
