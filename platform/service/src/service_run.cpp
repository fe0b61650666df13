#include "service_run.hpp"

#include <stdexcept>
#include <system_error>
#include <thread>

#include "core/blocked_signals.hpp"
#include "core/failure.hpp"

namespace xpon::service {

namespace {

std::thread start_without_signals(EventLoop& loop) {
    core::BlockedSignals const blocked;
    return std::thread{[&loop] { loop.run(); }};
}

/// Runs the loop on a thread of its own, and ends it when leaving the scope.
class EventThread {
  public:
    /// Throws std::system_error when there is no thread to be had.
    EventThread(EventLoop& loop, EventFlag const& finished_flag)
      : finished{finished_flag}
      , thread{start_without_signals(loop)} {}
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

ServiceRun::ServiceRun(std::unique_ptr<IService>&& driven_service, std::shared_ptr<core::ILogger> const& log,
                       std::shared_ptr<ipc::IIpc> const& endpoint,
                       std::unique_ptr<cfgdb::ChangeFeed>&& changes)
  : logger{log}
  , bus{endpoint}
  , feed{std::move(changes)}
  , ctx{[this] { std::ignore = flags.serving.raise(); }}
  , service{std::move(driven_service)} {
    if (!service) {
        throw std::invalid_argument{"a launcher needs a service"};
    }
}

core::Result<void> ServiceRun::run() {
    if (has_run.exchange(true)) {
        return core::fail(core::Error::InvalidState, "A launcher runs its service once");
    }
    EventLoop loop{*service, ctx, *logger, bus.get(), feed.get(), flags};
    std::optional<EventThread> events;
    try {
        events.emplace(loop, flags.finished);
    } catch (std::system_error const& error) {
        return core::fail(core::Error::CommonError, "Cannot start the event thread: {}", error.what());
    }
    return service->run(ctx);
}

core::Result<void> ServiceRun::stop() const {
    return flags.stop.raise();
}

} // namespace xpon::service
