#pragma once

#include <string>
#include <string_view>

#include "core/i_logger.hpp"
#include "core/result.hpp"
#include "timing.hpp"

namespace xpon::service {

/// What the event thread knows about a place that events come from: whether to wait for its descriptor, or
/// when to ask it. One that fails is left alone for 1, 2, 4 ... 512 s, then for 512 s each time, so that one
/// that fails for good neither keeps the processor busy nor fills the log.
class EventSource {
  public:
    /// `action` says in the log what failed. With the descriptor -1 the source never has anything.
    EventSource(std::string_view action, int fd, core::ILogger& logger);

    /// There may be something: it is to be asked until it has nothing more.
    void announced();

    /// It answered; `more` unless it had nothing.
    void answered(bool more);

    /// It could not answer. Logged unless the last attempt failed for the same reason.
    void failed(core::ErrorPayload const& error, TimePoint now);

    /// When to ask it: `at_once`, the end of its rest after a failure, or `never` as long as it is quiet.
    TimePoint due() const { return ask_at; }

    /// The descriptor to wait for; -1 while it will be asked anyway.
    int poll_fd() const { return ask_at == never ? fd : -1; }

  private:
    std::string_view action;
    int fd;
    core::ILogger& logger;
    TimePoint ask_at = never;
    int failures = 0;
    std::string reason; // of the last failure; empty while it is well
};

} // namespace xpon::service
