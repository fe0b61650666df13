#pragma once

#include <string>
#include <utility>

#include "retries.hpp"

namespace xpon::service {

/// What the event thread knows about a bus or feed: whether to wait for its descriptor, or when to read it. A
/// source that fails rests for 1, 2, 4 ... 512 s, then for an hour each time, so that a permanent failure
/// neither keeps the processor busy nor fills the log.
class EventSource {
  public:
    /// What its descriptor does while the source rests.
    enum class AtRest {
        Ignored, ///< it may stay readable, and waiting for it would keep the processor busy
        Heard,   ///< reading has made it unreadable: what comes afterwards ends the rest
    };

    /// `action` says in the log what failed. With the descriptor -1 the source never has anything.
    EventSource(std::string action, int descriptor, AtRest while_resting, core::ILogger& logger)
      : fd{descriptor}
      , at_rest{while_resting}
      , retries{std::move(action), logger} {}

    /// There may be something: read it until it has nothing more.
    void announced() {
        if (fd >= 0 && listens()) {
            read_at = at_once;
        }
    }
    /// It was read; `more` unless it had nothing.
    void answered(bool more) {
        read_at = more ? at_once : never;
        retries.worked();
    }
    /// It could not be read. Logged once for each reason.
    void failed(core::ErrorPayload const& error, TimePoint now) { read_at = retries.failed(error, now); }

    /// When to read it: `at_once`, the end of its rest after a failure, or `never` while it is quiet.
    TimePoint due() const { return read_at; }
    /// The descriptor to wait for; -1 while it does not matter.
    int poll_fd() const { return listens() ? fd : -1; }

  private:
    bool listens() const { return read_at == never || (at_rest == AtRest::Heard && read_at != at_once); }

    int fd;
    AtRest at_rest;
    Retries retries;
    TimePoint read_at = never;
};

} // namespace xpon::service
