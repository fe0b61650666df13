#pragma once

#include <optional>
#include <stdexcept>
#include <utility>

namespace xpon::ipc {

/// The value; without one the test fails.
template <class T>
T value_of(std::optional<T> optional) {
    if (!optional) {
        throw std::runtime_error{"nothing there"};
    }
    return *std::move(optional);
}

} // namespace xpon::ipc
