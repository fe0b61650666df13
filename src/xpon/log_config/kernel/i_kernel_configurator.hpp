#pragma once

#include "core/result.hpp"
#include "xpon/cfgdb/syslog_settings.hpp"

namespace xpon::log_config {

using core::Result;

class IKernelConfigurator {
  public:
    /// Sets the kernel's console log level. On failure the previous level stays in force. One thread at a
    /// time.
    virtual Result<void> apply_new_config(SyslogKernelDest const& dest) = 0;

    virtual ~IKernelConfigurator() = default;
};

} // namespace xpon::log_config
