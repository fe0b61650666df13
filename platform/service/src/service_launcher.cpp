#include "xpon/service/service_launcher.hpp"

#include <atomic>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "core/blocked_signals.hpp"
#include "core/failure.hpp"
#include "event_loop.hpp"

namespace xpon::service {

namespace {

std::unique_ptr<cfgdb::ChangeFeed> take_feed(core::ILogger& logger) {
    auto feed = cfgdb::ChangeFeed::take();
    if (!feed) {
        core::log(logger, core::log_failure, "Configuration changes are not followed: no database is open");
    }
    return feed;
}

/// Runs the loop on a thread of its own, and ends it when leaving the scope.
class EventThread {
  public:
    /// Throws std::system_error if no thread can be created.
    EventThread(EventLoop& loop, EventFlag const& finished_flag)
      : finished{finished_flag} {
        core::BlockedSignals const blocked;
        thread = std::thread{[&loop] { loop.run(); }};
    }
    ~EventThread() {
        std::ignore = finished.raise(); // fails only without a descriptor, and it has one
        thread.join();
    }
    EventThread(EventThread const&) = delete;
    EventThread& operator=(EventThread const&) = delete;

  private:
    EventFlag const& finished;
    std::thread thread;
};

} // namespace

struct ServiceLauncher::Impl {
    std::shared_ptr<core::ILogger> logger;
    std::shared_ptr<ipc::IIpc> bus;
    std::unique_ptr<cfgdb::ChangeFeed> feed;
    std::unique_ptr<IService> service;
    EventFlags flags{};
    ServiceCtx ctx{[this] { std::ignore = flags.serving.raise(); }};
    std::atomic<bool> has_run{false};
};

ServiceLauncher::ServiceLauncher(std::unique_ptr<IService>&& service,
                                 std::shared_ptr<core::ILogger> const& logger,
                                 std::shared_ptr<ipc::IIpc> const& ipc, bool follow_config)
  : impl{new Impl{logger, ipc, follow_config ? take_feed(*logger) : nullptr, std::move(service)}} {
    if (!impl->service) {
        throw std::invalid_argument{"a launcher needs a service"};
    }
}

ServiceLauncher::~ServiceLauncher() = default;

core::Result<void> ServiceLauncher::run() {
    if (impl->has_run.exchange(true)) {
        return core::fail(core::Error::InvalidState, "A launcher can run its service only once");
    }
    EventLoop loop{*impl->service, impl->ctx, *impl->logger, impl->bus.get(), impl->feed.get(), impl->flags};
    std::optional<EventThread> events;
    try {
        events.emplace(loop, impl->flags.finished);
    } catch (std::system_error const& error) {
        return core::fail(core::Error::CommonError, "Cannot start the event thread: {}", error.what());
    }
    return impl->service->run(impl->ctx);
}

core::Result<void> ServiceLauncher::stop() {
    return impl->flags.stop.raise();
}

} // namespace xpon::service
