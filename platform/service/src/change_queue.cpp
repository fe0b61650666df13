#include "change_queue.hpp"

#include <utility>

#include "core/log.hpp"

namespace xpon::service {

ChangeQueue::ChangeQueue(core::ILogger& log)
  : logger{log}
  , retries{log} {}

void ChangeQueue::add(List list) {
    for (auto const& change : list) {
        retries.superseded(change.field_id);
    }
    retries.database_changed();
    waiting.push_back(std::move(list));
}

TimePoint ChangeQueue::due() const {
    return waiting.empty() ? retries.next_due() : at_once;
}

ChangeQueue::List const& ChangeQueue::next(TimePoint now) {
    current.clear();
    if (!waiting.empty()) {
        current = std::move(waiting.front());
        waiting.pop_front();
    } else if (auto const retry = retries.due(now)) {
        current.push_back(*retry);
    }
    return current;
}

void ChangeQueue::succeeded() {
    for (auto const& change : current) {
        retries.succeeded(change.field_id);
    }
}

void ChangeQueue::failed(core::ErrorPayload const& error, TimePoint now) {
    if (current.size() == 1) {
        retries.failed(current.front(), error, now);
        return;
    }
    core::log(logger, core::log_failure, "config_change of {} fields failed: {}", current.size(),
              error.to_string());
    for (auto change = current.rbegin(); change != current.rend(); ++change) {
        waiting.push_front({*change});
    }
}

} // namespace xpon::service
