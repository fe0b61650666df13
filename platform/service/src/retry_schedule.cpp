#include "retry_schedule.hpp"

#include <algorithm>

#include <fmt/format.h>

#include "xpon/cfgdb/settings.hpp"

namespace xpon::service {

RetrySchedule::RetrySchedule(core::ILogger& log)
  : logger{log} {}

void RetrySchedule::failed(Config_change change, core::ErrorPayload const& error, TimePoint now) {
    auto entry = find(change.field_id);
    if (entry == entries.end()) {
        FailureLog log{fmt::format("config_change of {}", cfgdb::field_name(change.field_id)), logger};
        entry = entries.insert(entry, {change, std::move(log)});
    }
    entry->change = change;
    entry->error = error.error;
    entry->log.failed(error);
    entry->due = now + retry_delay(entry->failures++);
}

std::optional<Config_change> RetrySchedule::due(TimePoint now) const {
    if (next_due() > now) {
        return std::nullopt;
    }
    return earliest()->change;
}

TimePoint RetrySchedule::next_due() const {
    auto const first = earliest();
    return first == entries.end() ? never : first->due;
}

void RetrySchedule::superseded(std::uint32_t field_id) {
    if (auto const entry = find(field_id); entry != entries.end()) {
        entry->failures = 0;
        entry->due = never;
    }
}

void RetrySchedule::database_changed() {
    for (auto& entry : entries) {
        if (entry.error == core::Error::ErrorCApi && entry.due != never) {
            entry.due = at_once;
        }
    }
}

void RetrySchedule::succeeded(std::uint32_t field_id) {
    if (auto const entry = find(field_id); entry != entries.end()) {
        entry->log.worked();
        entries.erase(entry);
    }
}

std::vector<RetrySchedule::Entry>::iterator RetrySchedule::find(std::uint32_t field_id) {
    return std::ranges::find(entries, field_id, [](Entry const& entry) { return entry.change.field_id; });
}

std::vector<RetrySchedule::Entry>::const_iterator RetrySchedule::earliest() const {
    return std::ranges::min_element(entries, {}, &Entry::due);
}

} // namespace xpon::service
