#include "change_queue.hpp"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "core/log.hpp"
#include "xpon/cfgdb/settings.hpp"

namespace xpon::service {

ChangeQueue::ChangeQueue(core::ILogger& log)
  : logger{log} {}

void ChangeQueue::add(List list) {
    for (auto const& change : list) {
        if (auto const field = find(change.field_id); field != failing.end()) {
            field->retries.restart();
            field->retry = never;
        }
    }
    for (auto& field : failing) {
        if (field.error == core::Error::ErrorCApi && field.retry != never) {
            field.retry = at_once;
        }
    }
    waiting.push_back(std::move(list));
}

TimePoint ChangeQueue::due() const {
    if (!waiting.empty()) {
        return at_once;
    }
    auto const first = earliest_retry();
    return first == failing.end() ? never : first->retry;
}

ChangeQueue::List const& ChangeQueue::next(TimePoint now) {
    current.clear();
    if (!waiting.empty()) {
        current = std::move(waiting.front());
        waiting.pop_front();
    } else if (due() <= now) {
        current.push_back(earliest_retry()->change);
    }
    return current;
}

void ChangeQueue::succeeded() {
    for (auto const& change : current) {
        if (auto const field = find(change.field_id); field != failing.end()) {
            field->retries.worked();
            failing.erase(field);
        }
    }
    if (alone == 0) {
        return;
    }
    --alone;
    if (alone == 0 && broken > 0) {
        core::log(logger, core::log_routine, "config_change of {} fields works again", broken);
    }
}

void ChangeQueue::failed(core::ErrorPayload const& error, TimePoint now) {
    if (current.size() == 1) {
        alone = std::max<std::size_t>(alone, 1) - 1;
        broken = 0; // it has a line of its own
        retry_later(current.front(), error, now);
        return;
    }
    core::log(logger, core::log_failure, "config_change of {} fields failed: {}", current.size(),
              error.to_string());
    alone = broken = current.size();
    for (auto change = current.rbegin(); change != current.rend(); ++change) {
        waiting.push_front({*change});
    }
}

void ChangeQueue::retry_later(Config_change const& change, core::ErrorPayload const& error, TimePoint now) {
    auto field = find(change.field_id);
    if (field == failing.end()) {
        Retries retries{fmt::format("config_change of {}", cfgdb::field_name(change.field_id)), logger};
        field = failing.insert(field, {change, std::move(retries)});
    }
    field->change = change;
    field->error = error.error;
    field->retry = field->retries.failed(error, now);
}

std::vector<ChangeQueue::Failing>::iterator ChangeQueue::find(std::uint32_t field_id) {
    return std::ranges::find(failing, field_id, [](Failing const& field) { return field.change.field_id; });
}

std::vector<ChangeQueue::Failing>::const_iterator ChangeQueue::earliest_retry() const {
    return std::ranges::min_element(failing, {}, &Failing::retry);
}

} // namespace xpon::service
