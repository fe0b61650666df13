#include "event_source.hpp"

#include <utility>

namespace xpon::service {

EventSource::EventSource(std::string action, int descriptor, AtRest while_resting, core::ILogger& logger)
  : fd{descriptor}
  , at_rest{while_resting}
  , log{std::move(action), logger} {}

void EventSource::announced() {
    if (fd >= 0 && listens()) {
        ask_at = at_once;
    }
}

void EventSource::answered(bool more) {
    ask_at = more ? at_once : never;
    failures = 0;
    log.worked();
}

void EventSource::failed(core::ErrorPayload const& error, TimePoint now) {
    ask_at = now + retry_delay(failures++);
    log.failed(error);
}

} // namespace xpon::service
