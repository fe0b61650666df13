#include "event_loop.hpp"

#include <algorithm>
#include <array>
#include <string>
#include <utility>

#include <poll.h>

#include "core/failure.hpp"

namespace xpon::service {

struct BusEvent {
    std::uint16_t id;
    std::string_view name;
    core::Result<void> (IService::*handler)(ServiceCtx const&);
};

namespace {

constexpr BusEvent master_change{ipc::master_change_event, "master_change", &IService::master_change};
constexpr BusEvent sync{ipc::sync_event, "sync", &IService::sync};

BusEvent const* bus_event(std::uint16_t id) {
    for (auto const* const event : {&master_change, &sync}) {
        if (event->id == id) {
            return event;
        }
    }
    return nullptr;
}

} // namespace

EventLoop::EventLoop(IService& service, ServiceCtx const& ctx, core::ILogger& logger, ipc::IIpc* bus,
                     cfgdb::ChangeFeed* feed, EventFlags const& flags)
  : service{service}
  , ctx{ctx}
  , logger{logger}
  , bus{bus}
  , feed{feed}
  , flags{flags}
  , bus_source{"Reading the message bus", bus != nullptr ? bus->receive_fd() : -1,
               EventSource::AtRest::Ignored, logger}
  , feed_source{"Reading the configuration changes", feed != nullptr ? feed->fd() : -1,
                EventSource::AtRest::Heard, logger}
  , changes{logger} {}

void EventLoop::run() {
    // The bus is read from the beginning: an endpoint that nobody reads is not connected and misses messages
    // to everybody.
    bus_source.announced();
    for (;;) {
        wait();
        if (flags.finished.raised()) {
            return;
        }
        if (flags.stop.raised()) {
            call("stop", [this] { return service.stop(ctx); });
            return;
        }
        if (!serving && flags.serving.raised()) {
            begin_serving();
        }
        take_from_bus();
        if (serving) {
            deliver_bus_events();
            deliver_changes();
        }
    }
}

void EventLoop::wait() {
    std::array<pollfd, 5> watched{{
        {flags.finished.fd(), POLLIN, 0},
        {flags.stop.fd(), POLLIN, 0},
        {serving ? -1 : flags.serving.fd(), POLLIN, 0},
        {bus_source.poll_fd(), POLLIN, 0},
        {serving ? feed_source.poll_fd() : -1, POLLIN, 0},
    }};
    auto const due = std::min({bus_source.due(), feed_source.due(), changes.due()});
    if (::poll(watched.data(), watched.size(), poll_timeout(due, Clock::now())) <= 0) {
        return;
    }
    if (watched[3].revents != 0) {
        bus_source.announced();
    }
    if (watched[4].revents != 0) {
        feed_source.announced();
    }
}

void EventLoop::begin_serving() {
    serving = true;
    feed_source.announced(); // a commit may have been announced before the loop waited for it
    call("is_required_master_change_event", [this]() -> core::Result<void> {
        if (service.is_required_master_change_event()) {
            remember(master_change);
        }
        return core::success();
    });
}

// One message at a time, so that a flood on the bus does not hold up the changes.
void EventLoop::take_from_bus() {
    if (bus_source.due() > Clock::now()) {
        return;
    }
    auto const received = core::caught([this] { return bus->receive(); });
    if (received.has_error()) {
        bus_source.failed(received.error(), Clock::now());
        return;
    }
    auto const& message = received.value();
    bus_source.answered(message.has_value());
    if (auto const* const event = message ? bus_event(message->header.event) : nullptr) {
        remember(*event);
    }
}

// Events wait here only before the service serves, and each is kept once: both say that something may have
// changed, not what.
void EventLoop::remember(BusEvent const& event) {
    if (std::ranges::find(bus_events_due, &event) == bus_events_due.end()) {
        bus_events_due.push_back(&event);
    }
}

void EventLoop::deliver_bus_events() {
    for (auto const* const event : std::exchange(bus_events_due, {})) {
        if (!ending()) {
            call(event->name, [&] { return (service.*event->handler)(ctx); });
        }
    }
}

// A list is delivered completely, including its fields one by one after an error, before the feed is read
// again; changes that arrive meanwhile become one list. A retry that is due comes before the next list, or a
// stream of changes could delay it for ever.
void EventLoop::deliver_changes() {
    if (changes.due() > Clock::now()) {
        ask_feed();
    }
    auto const& list = changes.next(Clock::now());
    if (list.empty() || ending()) {
        return;
    }
    auto const result = core::guarded(logger, [&] { return service.config_change(ctx, list); });
    if (result.has_value()) {
        changes.succeeded();
    } else {
        changes.failed(result.error(), Clock::now());
    }
}

void EventLoop::ask_feed() {
    if (feed_source.due() > Clock::now()) {
        return;
    }
    auto next = core::caught([this] { return feed->next(); });
    if (next.has_error()) {
        feed_source.failed(next.error(), Clock::now());
        return;
    }
    feed_source.answered(!next.value().empty());
    if (!next.value().empty()) {
        changes.add(std::move(next).value());
    }
}

template <class Handler>
void EventLoop::call(std::string_view event, Handler const& handler) {
    auto const result = core::guarded(logger, handler);
    if (result.has_error()) {
        core::log(logger, core::log_failure, "{} failed: {}", event, result.error().to_string());
    }
}

} // namespace xpon::service
