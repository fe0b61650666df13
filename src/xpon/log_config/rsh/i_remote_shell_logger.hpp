#pragma once

#include "xpon/log_config/rsh/remote_logger_event.hpp"

namespace xpon::log_config {

class IRemoteShellLogger {
  public:
    /// Replaces the callback for terminal events. Takes no lock: call it while no event is being handled.
    virtual Result<void> set_update_config_cb(UpdateConfigCb&& callback) = 0;

    virtual ~IRemoteShellLogger() = default;
};

} // namespace xpon::log_config
