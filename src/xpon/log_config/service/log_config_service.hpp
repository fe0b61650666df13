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
/// meet in the syslog configurator, whose own lock orders what they apply; the service takes none.
class LogConfigService : public service::ServiceBase {
  public:
    /// Reads and writes nothing yet.
    LogConfigService(std::shared_ptr<core::ILogger> const& logger,
                     std::shared_ptr<cfgdb::CfgDbWrapper> const& cfgdb,
                     std::unique_ptr<IKernelConfigurator>&& kernel_configurator,
                     std::unique_ptr<ISyslogConfigurator>&& syslog_configurator,
                     std::unique_ptr<IRemoteShellLogger>&& rsh_logger,
                     std::vector<std::unique_ptr<ILogConfigFile>>&& log_files, service::ServiceMode mode);

    /// First configuration pass, then serves until stopped. A failed pass is logged and returned: the service
    /// does not serve then.
    Result<void> run(service::ServiceCtx const& ctx) override;
    /// Reconfigures syslog-ng if the mode changed.
    Result<void> master_change(service::ServiceCtx const& ctx) override;
    /// Brings every output that depends on a changed field up to date: syslog-ng, kernel, then the zlog
    /// files. The first failure is logged and returned, and what would have followed is left undone.
    Result<void> config_change(service::ServiceCtx const& ctx,
                               std::vector<Config_change> const& changes) override;
    Result<void> sync(service::ServiceCtx const& ctx) override;

    /// The first pass: kernel level, syslog-ng, then the callback for remote terminals; stops at a failure.
    Result<void> start_up();
    Result<void> update_kernel_configurator();
    Result<void> update_syslog_configurator();
    /// The record as stored, but for `kernel`, which holds the default. Safe from any thread.
    Result<SyslogSettings> get_full_syslog_config();
    /// A remote terminal opened or closed: reads the settings, records the terminal, applies both. Does so
    /// again if the settings were read for another update meanwhile.
    Result<void> update_pts(RemoteLoggerEvent const& event);

  private:
    std::shared_ptr<core::ILogger> logger;
    std::shared_ptr<cfgdb::CfgDbWrapper> cfgdb;
    std::unique_ptr<IKernelConfigurator> kernel_configurator;
    std::unique_ptr<ISyslogConfigurator> syslog_configurator;
    std::unique_ptr<IRemoteShellLogger> rsh_logger;
    std::vector<std::unique_ptr<ILogConfigFile>> log_files;
    service::ServiceMode mode;
    /// How often `update_syslog_configurator` has read the settings. Incremented by the thread that runs it,
    /// read by the polling thread, which so learns that what it has applied may be older than what it
    /// replaced.
    std::atomic<unsigned> settings_read = 0;
};

} // namespace xpon::log_config
