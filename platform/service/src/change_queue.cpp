#include "change_queue.hpp"

#include <utility>

#include "core/log.hpp"

namespace xpon::service {

ChangeQueue::ChangeQueue(core::ILogger& log)
  : logger{log} {}

void ChangeQueue::add(List list) {
    for (auto const& change : list) {
        retries.succeeded(change.field_id);
    }
    waiting.push_back(std::move(list));
}

TimePoint ChangeQueue::due() const {
    return waiting.empty() ? retries.next_due() : at_once;
}

ChangeQueue::List const& ChangeQueue::next(TimePoint now) {
    current.clear();
    current_is_retry = waiting.empty();
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

void ChangeQueue::failed(TimePoint now) {
    auto const& first = current.front();
    if (current.size() > 1) {
        for (auto change = current.rbegin(); change != current.rend(); ++change) {
            waiting.push_front({*change});
        }
    } else if (!current_is_retry) {
        retries.add(first, now);
    } else if (!retries.failed(first.field_id, now)) {
        core::log(logger, core::log_failure,
                  "Gave up on field {} after {} retries; it waits for its next change", first.field_id,
                  retry_limit);
    }
}

} // namespace xpon::service
