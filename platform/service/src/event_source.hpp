#pragma once

#include <string>

#include "core/i_logger.hpp"
#include "core/result.hpp"
#include "failure_log.hpp"
#include "timing.hpp"

namespace xpon::service {

/// What the event thread knows about a place that events come from: whether to wait for its descriptor, or
/// when to ask it. One that fails rests for 1, 2, 4 ... 512 s, then for an hour each time, so that one that
/// fails for good neither keeps the processor busy nor fills the log.
class EventSource {
  public:
    /// What its descriptor does while the source rests.
    enum class AtRest {
        Ignored, ///< it may stay readable, and waiting for it would keep the processor busy
        Heard,   ///< asking has made it unreadable: what comes afterwards ends the rest
    };

    /// `action` says in the log what failed. With the descriptor -1 the source never has anything.
    EventSource(std::string action, int fd, AtRest at_rest, core::ILogger& logger);

    /// There may be something: it is to be asked until it has nothing more.
    void announced();

    /// It answered; `more` unless it had nothing.
    void answered(bool more);

    /// It could not answer. Logged once for each reason.
    void failed(core::ErrorPayload const& error, TimePoint now);

    /// When to ask it: `at_once`, the end of its rest after a failure, or `never` as long as it is quiet.
    TimePoint due() const { return ask_at; }

    /// The descriptor to wait for; -1 while it does not matter.
    int poll_fd() const { return listens() ? fd : -1; }

  private:
    bool listens() const { return ask_at == never || (at_rest == AtRest::Heard && ask_at != at_once); }

    int fd;
    AtRest at_rest;
    FailureLog log;
    TimePoint ask_at = never;
    int failures = 0; // in a row
};

} // namespace xpon::service
