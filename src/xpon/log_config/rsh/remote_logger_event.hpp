#pragma once

#include <cstdint>
#include <functional>

#include "core/result.hpp"

namespace xpon::log_config {

using core::Result;

enum class RemoteLoggerAction : std::uint32_t {
    Add = 0,    ///< a terminal was created
    Remove = 1, ///< a terminal is gone, or only the syslog daemon has it open
};

struct RemoteLoggerEvent {
    std::int64_t pts_number; ///< N of /dev/pts/N
    RemoteLoggerAction action;
};

/// Receives the events of remote terminals, on the polling thread. If it is empty, events are dropped.
using UpdateConfigCb = std::function<Result<void>(RemoteLoggerEvent const&)>;

} // namespace xpon::log_config
