#pragma once

#include <string_view>
#include <vector>

#include "change_queue.hpp"
#include "core/i_logger.hpp"
#include "event_flag.hpp"
#include "event_source.hpp"
#include "xpon/cfgdb/change_feed.hpp"
#include "xpon/ipc/i_ipc.hpp"
#include "xpon/service/i_service.hpp"

namespace xpon::service {

/// What the event thread is told.
struct EventFlags {
    EventFlag stop;     ///< the service shall be stopped
    EventFlag serving;  ///< events may be delivered
    EventFlag finished; ///< the service's `run` is over
};

struct BusEvent;

/// The loop of the event thread: it sleeps until something is due and delivers one event at a time to the
/// service. Everything passed to it must outlive it.
class EventLoop {
  public:
    /// Without a bus or a feed there are no events from it.
    EventLoop(IService& service, ServiceCtx const& ctx, core::ILogger& logger, ipc::IIpc* bus,
              cfgdb::ChangeFeed* feed, EventFlags const& flags);

    /// Returns once `finished` is raised, or once `stop` is raised and the service has been stopped.
    void run();

  private:
    /// Sleeps until a flag is raised, a source announces something or something is due.
    void wait();
    void begin_serving();
    void take_from_bus();
    void remember(BusEvent const& event);
    void deliver_bus_events();
    void deliver_changes();
    void ask_feed();

    /// Calls a handler; an error is logged and leaves the service serving.
    template <class Handler>
    void call(std::string_view event, Handler const& handler);

    /// True once the end was requested: nothing more is delivered.
    bool ending() const { return flags.stop.raised() || flags.finished.raised(); }

    IService& service;
    ServiceCtx const& ctx;
    core::ILogger& logger;
    ipc::IIpc* bus;
    cfgdb::ChangeFeed* feed;
    EventFlags const& flags;

    bool serving = false;
    EventSource bus_source;
    EventSource feed_source;
    std::vector<BusEvent const*> bus_events_due; // each once, in the order of their arrival
    ChangeQueue changes;
};

} // namespace xpon::service
