#pragma once

#include "core/result.hpp"
#include "xpon/cfgdb/syslog_settings.hpp"
#include "xpon/log_config/rsh/remote_logger_event.hpp"

namespace xpon::log_config {

class ISyslogConfigurator {
  public:
    /// Writes the whole syslog-ng configuration and reloads syslog-ng. After a failure the file may already
    /// be newer than the configuration that syslog-ng runs. Safe from any thread; calls are serialised.
    virtual Result<void> apply_new_config(SyslogSettings const& settings) = 0;

    /// Records that a remote terminal opened or closed. The next `apply_new_config` writes it to the file. A
    /// terminal number outside 0..15 aborts the process. Safe from any thread.
    virtual Result<void> update_remote_logging(RemoteLoggerEvent const& event) = 0;

    virtual ~ISyslogConfigurator() = default;
};

} // namespace xpon::log_config
