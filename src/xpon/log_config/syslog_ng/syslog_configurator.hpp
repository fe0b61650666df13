#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "xpon/config_writer/i_config_writer.hpp"
#include "xpon/log_config/syslog_ng/i_syslog_configurator.hpp"
#include "xpon/log_config/syslog_ng/syslog_ng_text.hpp"
#include "xpon/system_wrapper/i_system_wrapper.hpp"

namespace xpon::log_config {

/// Keeps /etc/syslog-ng/syslog-ng.conf and the running syslog-ng in step with the settings and the open
/// terminals. Logs nothing; the callers log the returned errors.
class SyslogConfigurator : public ISyslogConfigurator {
  public:
    /// Initially no terminal is open. `writer` writes the configuration file.
    SyslogConfigurator(std::shared_ptr<system_wrapper::ISystemWrapper> const& system_wrapper,
                       std::unique_ptr<config_writer::IConfigWriter>&& writer);

    /// Fails with the writer's error, with `Exception` if generating or writing throws (there is no reload
    /// then), or with `CommonError` "Failed reload syslog", in which case the new file stays. Exceptions of
    /// the system wrapper pass through.
    Result<void> apply_new_config(SyslogSettings const& settings) override;
    Result<void> update_remote_logging(RemoteLoggerEvent const& event) override;

    /// The text for the settings and the terminals that are open now. Takes no lock: one thread at a time.
    Result<std::string> generate_config(SyslogSettings const& settings) const;

  private:
    OpenShells rsh_active{}; // guarded by mutex
    std::mutex mutex;        // also held while a configuration is generated, written and reloaded
    std::shared_ptr<system_wrapper::ISystemWrapper> system_wrapper;
    std::unique_ptr<config_writer::IConfigWriter> writer;
};

} // namespace xpon::log_config
