#include "xpon/log_config/service/log_config_service.hpp"

#include <source_location>
#include <utility>

#include "core/failure.hpp"
#include "xpon/log_config/outputs/read_syslog_settings.hpp"
#include "xpon/log_config/zlog_files/module_fields.hpp"

namespace xpon::log_config {

using core::c_api_result;
using core::Error;
using core::fail;
using core::guarded;
using core::log_failure;
using core::pass_on;
using core::success;
using service::ServiceCtx;
using service::ServiceMode;

LogConfigService::LogConfigService(std::shared_ptr<core::ILogger> const& logger,
                                   std::shared_ptr<cfgdb::CfgDbWrapper> const& cfgdb,
                                   std::unique_ptr<IKernelConfigurator>&& kernel_configurator,
                                   std::unique_ptr<ISyslogConfigurator>&& syslog_configurator,
                                   std::unique_ptr<IRemoteShellLogger>&& rsh_logger,
                                   std::vector<std::unique_ptr<ILogConfigFile>>&& log_files, ServiceMode mode)
  : logger{logger}
  , cfgdb{cfgdb}
  , kernel_configurator{std::move(kernel_configurator)}
  , syslog_configurator{std::move(syslog_configurator)}
  , rsh_logger{std::move(rsh_logger)}
  , log_files{std::move(log_files)}
  , mode{mode} {}

Result<void> LogConfigService::run(ServiceCtx const& ctx) {
    mode = ServiceMode::Standalone;
    unsigned char const mask = (ServiceMode::Master | ServiceMode::Standby) | ServiceMode::Standalone;
    OUTCOME_TRY(pass_on(*logger, is_allowed_mode(mode, mask)));
    OUTCOME_TRY(pass_on(*logger, guarded(*logger, [this] { return start_up(); })));
    return ServiceBase::run(ctx);
}

Result<void> LogConfigService::start_up() {
    if (auto const kernel = update_kernel_configurator(); !kernel.has_value()) {
        return fail(Error::CommonError, "Config update for kernel logging config failed ({})",
                    kernel.error().to_string());
    }
    if (auto const syslog = update_syslog_configurator(); !syslog.has_value()) {
        return fail(Error::CommonError, "Config update for syslog config failed ({})",
                    syslog.error().to_string());
    }
    auto const installed = rsh_logger->set_update_config_cb(
        [this](RemoteLoggerEvent const& event) { return update_pts(event); });
    if (!installed.has_value()) {
        return fail(Error::CommonError, "Set callback for rsh failed ({})", installed.error().to_string());
    }
    return success();
}

Result<void> LogConfigService::master_change(ServiceCtx const& /*ctx*/) {
    auto const before = std::exchange(mode, ServiceMode::Standalone);
    // Unlike in run(), the mask lacks the standalone flag that was just set. Whether that passes is decided
    // by `is_allowed_mode`.
    unsigned char const mask = ServiceMode::Master | ServiceMode::Standby;
    OUTCOME_TRY(pass_on(*logger, is_allowed_mode(mode, mask)));
    if (logger->is_enabled(log_failure)) {
        logger->log(log_failure, fmt::format("Master-change event with mode: {}", to_string(mode)),
                    std::source_location::current());
    }
    if (mode == before) {
        return success();
    }
    return pass_on(*logger, guarded(*logger, [this] { return update_syslog_configurator(); }));
}

Result<void> LogConfigService::config_change(ServiceCtx const& /*ctx*/,
                                             std::vector<Config_change> const& changes) {
    bool syslog_changed = false;
    bool kernel_changed = false;
    ModuleChanges module_changes;
    for (auto const& change : changes) {
        if (change.field_id == cfgdb::kernel_field) {
            kernel_changed = true;
        } else if (is_syslog_field(change.field_id)) {
            syslog_changed = true;
        } else if (auto const* const field = find_module_field(change.field_id)) {
            std::any descriptor;
            OUTCOME_TRY(c_api_result(*logger, field->read(cfgdb->db(), descriptor, global_row)));
            module_changes.emplace_back(field->queued_as, std::move(descriptor));
        }
    }

    if (syslog_changed) {
        OUTCOME_TRY(pass_on(*logger, guarded(*logger, [this] { return update_syslog_configurator(); })));
    }
    if (kernel_changed) {
        OUTCOME_TRY(pass_on(*logger, guarded(*logger, [this] { return update_kernel_configurator(); })));
    }
    if (!module_changes.empty()) {
        for (auto const& file : log_files) {
            OUTCOME_TRY(
                pass_on(*logger, guarded(*logger, [&] { return file->apply_new_config(module_changes); })));
        }
    }
    return success();
}

Result<void> LogConfigService::sync(ServiceCtx const& /*ctx*/) {
    return success();
}

Result<void> LogConfigService::update_kernel_configurator() {
    SyslogKernelDest dest{};
    OUTCOME_TRY(
        c_api_result(*logger, getRunDb_CommonGCfg_logging_syslog_kernel(cfgdb->db(), &dest, global_row)));
    return pass_on(*logger, guarded(*logger, [&] { return kernel_configurator->apply_new_config(dest); }));
}

Result<void> LogConfigService::update_syslog_configurator() {
    OUTCOME_TRY(settings, pass_on(*logger, guarded(*logger, [this] { return get_full_syslog_config(); })));
    ++settings_read;
    if (mode == ServiceMode::Standby) {
        // The standby controller sends nothing to the remote receivers, whatever the database holds.
        OUTCOME_TRY(c_api_result(*logger, init_SyslogNetworkDest(&settings.remote)));
    }
    return pass_on(*logger,
                   guarded(*logger, [&] { return syslog_configurator->apply_new_config(settings); }));
}

Result<SyslogSettings> LogConfigService::get_full_syslog_config() {
    return read_syslog_settings(
        cfgdb->db(), [this](int status, std::source_location where = std::source_location::current()) {
            return c_api_result(*logger, status, where);
        });
}

Result<void> LogConfigService::update_pts(RemoteLoggerEvent const& event) {
    for (;;) {
        unsigned const before = settings_read;
        OUTCOME_TRY(settings,
                    pass_on(*logger, guarded(*logger, [this] { return get_full_syslog_config(); })));
        OUTCOME_TRY(pass_on(
            *logger, guarded(*logger, [&] { return syslog_configurator->update_remote_logging(event); })));
        auto applied = guarded(*logger, [&] { return syslog_configurator->apply_new_config(settings); });
        // The event thread may have read newer settings meanwhile, and this call may have overwritten them.
        // That holds even if this call failed, because the file is written before the reload.
        if (settings_read == before) {
            return pass_on(*logger, std::move(applied));
        }
    }
}

} // namespace xpon::log_config
