#pragma once

#include <chrono>
#include <cstddef>
#include <initializer_list>
#include <optional>

#include "core/unique_fd.hpp"

namespace xpon::logctl {

/// When something is no longer waited for; without a value, never.
using Until = std::optional<std::chrono::steady_clock::time_point>;

/// Waits until a descriptor is readable. Returns the place of the first that is; nothing at the deadline.
std::optional<std::size_t> first_readable(std::initializer_list<int> descriptors, Until until);

/// SIGINT and SIGTERM as something to wait for. Call it before any thread starts; it is never undone, the
/// program ends with it.
core::UniqueFd stop_signals();

} // namespace xpon::logctl
