#pragma once

#include <atomic>
#include <memory>

#include "core/i_logger.hpp"
#include "event_loop.hpp"

namespace xpon::service {

/// All of ServiceLauncher but where the feed comes from, so that a test can hand in one of its own.
class ServiceRun {
  public:
    /// Throws as ServiceLauncher does. Without a bus or a feed there are no events from it.
    ServiceRun(std::unique_ptr<IService>&& service, std::shared_ptr<core::ILogger> const& logger,
               std::shared_ptr<ipc::IIpc> const& bus, std::unique_ptr<cfgdb::ChangeFeed>&& feed);

    ServiceRun(ServiceRun const&) = delete;
    ServiceRun& operator=(ServiceRun const&) = delete;

    core::Result<void> run();
    core::Result<void> stop() const;

  private:
    std::shared_ptr<core::ILogger> logger;
    std::shared_ptr<ipc::IIpc> bus;
    std::unique_ptr<cfgdb::ChangeFeed> feed;
    EventFlags flags;
    ServiceCtx ctx;
    std::unique_ptr<IService> service;
    std::atomic<bool> has_run{false};
};

} // namespace xpon::service
