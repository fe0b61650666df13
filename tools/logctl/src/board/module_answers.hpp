#pragma once

#include <chrono>
#include <cstdint>
#include <map>

#include "core/result.hpp"
#include "xpon/ipc/file_events.hpp"

namespace xpon::logctl {

/// The last answer of each module, by its value.
using ModuleAnswers = std::map<std::uint32_t, ipc::LastAnswer>;

/// The answers as the broker remembers them. Fails with `NoAccess` if the caller may not use the bus, else
/// with `CommonError`: there is no broker, or it does not answer in time.
core::Result<ModuleAnswers> ask_broker(std::chrono::steady_clock::time_point end);

} // namespace xpon::logctl
