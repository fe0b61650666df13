#pragma once

#include <memory>

#include "core/i_logger.hpp"
#include "core/result.hpp"
#include "xpon/ipc/i_ipc.hpp"
#include "xpon/service/i_service.hpp"

namespace xpon::service {

/// Runs one service: `run` on the caller's thread, the events (configuration changes when `follow_config`,
/// master change and sync from the bus) one at a time on one event thread, and only while it serves.
class ServiceLauncher {
  public:
    /// Throws std::system_error when the kernel gives no descriptor, std::invalid_argument without a service.
    ServiceLauncher(std::unique_ptr<IService>&& service, std::shared_ptr<core::ILogger> const& logger,
                    std::shared_ptr<ipc::IIpc> const& ipc, bool follow_config);
    /// Destroys the service. Not while `run` is running.
    ~ServiceLauncher();

    ServiceLauncher(ServiceLauncher const&) = delete;
    ServiceLauncher& operator=(ServiceLauncher const&) = delete;

    /// Runs the service until it is stopped or fails, and returns its result; the event thread has ended by
    /// then. Once per launcher.
    core::Result<void> run();

    /// Asks for the end: before, during and after `run`, from any thread, any number of times. Async-signal-
    /// safe (one write, no lock, no allocation) and leaves `errno` alone.
    core::Result<void> stop();

  private:
    struct Impl;
    std::unique_ptr<Impl> impl;
};

} // namespace xpon::service
