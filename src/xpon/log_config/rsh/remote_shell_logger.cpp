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
    // A signal would interrupt the poller's poll, and that ends it for good.
    core::BlockedSignals const all;
    // Nobody is left to handle the loop's error: that of a callback has been logged by it, the others are the
    // kernel's.
    thread = std::thread{[this] { std::ignore = poller.polling(); }};
}

RemoteShellLogger::~RemoteShellLogger() {
    // A wake-up that cannot be written leaves nothing to do but wait.
    std::ignore = poller.stop();
    thread.join();
}

Result<void> RemoteShellLogger::set_update_config_cb(UpdateConfigCb&& callback) {
    return poller.set_update_config_cb(std::move(callback));
}

} // namespace xpon::log_config
