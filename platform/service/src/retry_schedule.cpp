#include "retry_schedule.hpp"

namespace xpon::service {

void RetrySchedule::add(Config_change change, TimePoint now) {
    succeeded(change.field_id);
    entries.push_back({change, now + retry_delay(0), 0});
}

std::optional<Config_change> RetrySchedule::due(TimePoint now) const {
    auto const first = earliest();
    if (first == entries.end() || first->due > now) {
        return std::nullopt;
    }
    return first->change;
}

TimePoint RetrySchedule::next_due() const {
    auto const first = earliest();
    return first == entries.end() ? never : first->due;
}

void RetrySchedule::succeeded(std::uint32_t field_id) {
    std::erase_if(entries, [&](Entry const& entry) { return entry.change.field_id == field_id; });
}

bool RetrySchedule::failed(std::uint32_t field_id, TimePoint now) {
    for (auto& entry : entries) {
        if (entry.change.field_id == field_id && ++entry.failed_retries < retry_limit) {
            entry.due = now + retry_delay(entry.failed_retries);
            return true;
        }
    }
    succeeded(field_id);
    return false;
}

std::vector<RetrySchedule::Entry>::const_iterator RetrySchedule::earliest() const {
    return std::min_element(entries.begin(), entries.end(),
                            [](Entry const& left, Entry const& right) { return left.due < right.due; });
}

} // namespace xpon::service
