#pragma once

#include <filesystem>
#include <memory>
#include <thread>

#include "core/i_logger.hpp"
#include "xpon/log_config/rsh/i_remote_shell_logger.hpp"
#include "xpon/log_config/rsh/pts_poller.hpp"

namespace xpon::log_config {

/// Runs a PtsPoller on its own thread, from construction to destruction.
class RemoteShellLogger : public IRemoteShellLogger {
  public:
    /// Throws what PtsPoller's constructor throws, before any thread is started.
    RemoteShellLogger(std::filesystem::path const& dir,
                      std::shared_ptr<system_wrapper::ISystemWrapper> const& system_wrapper,
                      std::shared_ptr<core::ILogger> const& logger, UpdateConfigCb&& update_config_cb);
    /// Stops and joins the thread. If the thread has not entered its loop yet, it misses the stop, and the
    /// join waits until the loop ends by itself.
    ~RemoteShellLogger() override;

    Result<void> set_update_config_cb(UpdateConfigCb&& callback) override;

  private:
    PtsPoller poller;
    std::thread thread;
    std::shared_ptr<core::ILogger> logger;
};

} // namespace xpon::log_config
