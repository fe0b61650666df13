#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "core/i_logger.hpp"
#include "core/result.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"
#include "xpon/cfgdb/syslog_settings.hpp"
#include "xpon/log_config/kernel/i_kernel_configurator.hpp"
#include "xpon/log_config/rsh/i_remote_shell_logger.hpp"
#include "xpon/log_config/syslog_ng/i_syslog_configurator.hpp"
#include "xpon/log_config/zlog/i_log_config_file.hpp"
#include "xpon/service/service_base.hpp"
#include "xpon/service/service_mode.hpp"

namespace xpon::log_config {

/// Turns the launcher's events into updates of the outputs. `run` executes on the launcher's thread, the
/// events on its event thread, `update_pts` on the polling thread of the remote shell logger. The last two
/// share the syslog configurator, whose lock orders the updates. The service has no lock.
class LogConfigService : public service::ServiceBase {
  public:
    /// Reads and writes nothing yet.
    LogConfigService(std::shared_ptr<core::ILogger> const& logger,
                     std::shared_ptr<cfgdb::CfgDbWrapper> const& cfgdb,
                     std::unique_ptr<IKernelConfigurator>&& kernel_configurator,
                     std::unique_ptr<ISyslogConfigurator>&& syslog_configurator,
                     std::unique_ptr<IRemoteShellLogger>&& rsh_logger,
                     std::vector<std::unique_ptr<ILogConfigFile>>&& log_files, service::ServiceMode mode);

    /// Configures all outputs once, then serves until stopped. If that fails, the error is logged and
    /// returned, and the service does not serve.
    Result<void> run(service::ServiceCtx const& ctx) override;
    /// Reconfigures syslog-ng if the mode changed.
    Result<void> master_change(service::ServiceCtx const& ctx) override;
    /// Updates every output that depends on a changed field: syslog-ng, kernel, then the zlog files. Logs and
    /// returns the first failure, and skips what follows.
    Result<void> config_change(service::ServiceCtx const& ctx,
                               std::vector<Config_change> const& changes) override;
    Result<void> sync(service::ServiceCtx const& ctx) override;

    /// The first configuration: kernel level, syslog-ng, then the callback for remote terminals. Stops at a
    /// failure.
    Result<void> start_up();
    Result<void> update_kernel_configurator();
    Result<void> update_syslog_configurator();
    /// The record as stored, except `kernel`, which holds the default. Safe from any thread.
    Result<SyslogSettings> get_full_syslog_config();
    /// Handles a remote terminal that opened or closed: reads the settings, records the terminal, applies
    /// both. Repeats this if the settings were read for another update meanwhile.
    Result<void> update_pts(RemoteLoggerEvent const& event);

  private:
    std::shared_ptr<core::ILogger> logger;
    std::shared_ptr<cfgdb::CfgDbWrapper> cfgdb;
    std::unique_ptr<IKernelConfigurator> kernel_configurator;
    std::unique_ptr<ISyslogConfigurator> syslog_configurator;
    std::unique_ptr<IRemoteShellLogger> rsh_logger;
    std::vector<std::unique_ptr<ILogConfigFile>> log_files;
    service::ServiceMode mode;
    /// How often `update_syslog_configurator` has read the settings. The event thread increments it. If the
    /// polling thread sees it change, the settings that it has applied may be older than those it replaced.
    std::atomic<unsigned> settings_read = 0;
};

} // namespace xpon::log_config
