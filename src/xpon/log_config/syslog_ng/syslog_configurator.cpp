#include "xpon/log_config/syslog_ng/syslog_configurator.hpp"

#include <utility>

#include "core/failure.hpp"

namespace xpon::log_config {

using core::caught;
using core::Error;
using core::fail;
using core::success;

namespace {

constexpr char const* reload_command = "/usr/sbin/syslog-ng-ctl reload &> /dev/null";

} // namespace

SyslogConfigurator::SyslogConfigurator(std::shared_ptr<system_wrapper::ISystemWrapper> const& system_wrapper,
                                       std::unique_ptr<config_writer::IConfigWriter>&& writer)
  : system_wrapper{system_wrapper}
  , writer{std::move(writer)} {}

Result<void> SyslogConfigurator::apply_new_config(SyslogSettings const& settings) {
    std::lock_guard const lock{mutex};
    OUTCOME_TRY(text, caught([&] { return generate_config(settings); }));
    OUTCOME_TRY(caught([&] { return writer->write(text); }));
    auto const status = system_wrapper->execute(reload_command);
    if (!status.has_value() || status.value() != 0) {
        return fail(Error::CommonError, "Failed reload syslog");
    }
    return success();
}

Result<void> SyslogConfigurator::update_remote_logging(RemoteLoggerEvent const& event) {
    std::lock_guard const lock{mutex};
    // The subscript is checked in every build: a number outside the table aborts the process.
    rsh_active[static_cast<std::size_t>(event.pts_number)] = event.action == RemoteLoggerAction::Add;
    return success();
}

Result<std::string> SyslogConfigurator::generate_config(SyslogSettings const& settings) const {
    return syslog_ng_text(settings, rsh_active);
}

} // namespace xpon::log_config
