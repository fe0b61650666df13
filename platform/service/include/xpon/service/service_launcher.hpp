#pragma once

#include <memory>

#include "core/i_logger.hpp"
#include "core/result.hpp"
#include "xpon/ipc/i_ipc.hpp"
#include "xpon/service/i_service.hpp"

namespace xpon::service {

/// Runs one service: its `run` on the caller's thread, its events one at a time on one event thread, and only
/// while the service serves. The events are configuration changes, if `follow_config` is set, and master
/// change and sync from the bus.
class ServiceLauncher {
  public:
    /// Throws std::system_error if the kernel has no descriptor left, std::invalid_argument without a
    /// service.
    ServiceLauncher(std::unique_ptr<IService>&& service, std::shared_ptr<core::ILogger> const& logger,
                    std::shared_ptr<ipc::IIpc> const& ipc, bool follow_config);
    /// Destroys the service. Must not be called while `run` is running.
    ~ServiceLauncher();

    ServiceLauncher(ServiceLauncher const&) = delete;
    ServiceLauncher& operator=(ServiceLauncher const&) = delete;

    /// Runs the service until it is stopped or fails, and returns its result. The event thread has ended by
    /// then. Call it once per launcher.
    core::Result<void> run();

    /// Ends `run`. May be called before, during and after `run`, from any thread, any number of times.
    /// Async-signal-safe (one write, no lock, no allocation); leaves `errno` unchanged.
    core::Result<void> stop();

  private:
    struct Impl;
    std::unique_ptr<Impl> impl;
};

} // namespace xpon::service
