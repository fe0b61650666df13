#include "event_source.hpp"

#include "core/log.hpp"

namespace xpon::service {

EventSource::EventSource(std::string_view what, int descriptor, core::ILogger& log)
  : action{what}
  , fd{descriptor}
  , logger{log} {}

void EventSource::announced() {
    if (fd >= 0 && ask_at == never) {
        ask_at = at_once;
    }
}

void EventSource::answered(bool more) {
    ask_at = more ? at_once : never;
    if (failures > 0) {
        core::log(logger, core::log_routine, "{} works again", action);
        failures = 0;
        reason.clear();
    }
}

void EventSource::failed(core::ErrorPayload const& error, TimePoint now) {
    ask_at = now + retry_delay(failures++);
    if (auto text = error.to_string(); text != reason) {
        core::log(logger, core::log_failure, "{} failed: {}", action, text);
        reason = std::move(text);
    }
}

} // namespace xpon::service
