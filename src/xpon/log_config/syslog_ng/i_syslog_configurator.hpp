#pragma once

#include "core/result.hpp"
#include "xpon/cfgdb/syslog_settings.hpp"
#include "xpon/log_config/rsh/remote_logger_event.hpp"

namespace xpon::log_config {

class ISyslogConfigurator {
  public:
    /// Writes and reloads the whole syslog-ng configuration. On failure the file may already be newer than
    /// what syslog-ng runs. Safe from any thread; calls are serialised.
    virtual Result<void> apply_new_config(SyslogSettings const& settings) = 0;

    /// Records that a remote terminal opened or closed; the file follows with the next `apply_new_config`.
    /// A terminal number outside 0..15 aborts the process. Safe from any thread.
    virtual Result<void> update_remote_logging(RemoteLoggerEvent const& event) = 0;

    virtual ~ISyslogConfigurator() = default;
};

} // namespace xpon::log_config
