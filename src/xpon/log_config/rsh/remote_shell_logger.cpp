#include "xpon/log_config/rsh/remote_shell_logger.hpp"

#include <tuple>
#include <utility>

#include "core/blocked_signals.hpp"

namespace xpon::log_config {

RemoteShellLogger::RemoteShellLogger(std::filesystem::path const& dir,
                                     std::shared_ptr<system_wrapper::ISystemWrapper> const& system_wrapper,
                                     std::shared_ptr<core::ILogger> const& logger,
                                     UpdateConfigCb&& update_config_cb)
  : poller{dir, system_wrapper, logger, std::move(update_config_cb)}
  , logger{logger} {
    // A signal would interrupt the poller's poll, which ends the poller for good.
    core::BlockedSignals const all;
    // Nothing can handle the error of the loop. The callback has logged its own; the others come from the
    // kernel.
    thread = std::thread{[this] { std::ignore = poller.polling(); }};
}

RemoteShellLogger::~RemoteShellLogger() {
    // If the wake-up cannot be written, the only choice is to wait.
    std::ignore = poller.stop();
    thread.join();
}

Result<void> RemoteShellLogger::set_update_config_cb(UpdateConfigCb&& callback) {
    return poller.set_update_config_cb(std::move(callback));
}

} // namespace xpon::log_config
