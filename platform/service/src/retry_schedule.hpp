#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "timing.hpp"
#include "xpon/cfgdb/config_change.hpp"

namespace xpon::service {

/// The fields whose change could not be applied, and when each is tried again.
class RetrySchedule {
  public:
    /// The first retry comes 1 s from now; a field that is waiting already starts anew.
    void add(Config_change change, TimePoint now);

    /// The one that has been due for the longest, if any is. It stays until `succeeded` or its last `failed`.
    std::optional<Config_change> due(TimePoint now) const;

    /// When `due` has one again; `never` if none is waiting.
    TimePoint next_due() const;

    /// The field is up to date, or something else takes care of it; harmless if it is not waiting.
    void succeeded(std::uint32_t field_id);

    /// A retry failed: the next comes after twice the wait. False if it was the last; the field is gone then.
    [[nodiscard]] bool failed(std::uint32_t field_id, TimePoint now);

  private:
    struct Entry {
        Config_change change;
        TimePoint due;
        int failed_retries;
    };

    std::vector<Entry>::const_iterator earliest() const;

    std::vector<Entry> entries; // in order of arrival, which decides between two that are due together
};

} // namespace xpon::service
