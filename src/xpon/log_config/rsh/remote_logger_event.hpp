#pragma once

#include <cstdint>
#include <functional>

#include "core/result.hpp"

namespace xpon::log_config {

using core::Result;

enum class RemoteLoggerAction : std::uint32_t {
    Add = 0,    ///< a terminal was created
    Remove = 1, ///< a terminal is gone, or nobody but the syslog daemon holds it
};

struct RemoteLoggerEvent {
    std::int64_t pts_number; ///< N of /dev/pts/N
    RemoteLoggerAction action;
};

/// Receives the events of remote terminals, on the polling thread. May be empty: then nobody listens.
using UpdateConfigCb = std::function<Result<void>(RemoteLoggerEvent const&)>;

} // namespace xpon::log_config
