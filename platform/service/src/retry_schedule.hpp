#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "failure_log.hpp"
#include "timing.hpp"
#include "xpon/cfgdb/config_change.hpp"

namespace xpon::service {

/// The fields whose change could not be applied, and when each is tried again: at longer and longer
/// intervals, until it succeeds. The log tells of each field's failure once for each reason, and that it
/// works again.
class RetrySchedule {
  public:
    explicit RetrySchedule(core::ILogger& logger);

    /// The change could not be applied: the first time, in a retry or after a newer change.
    void failed(Config_change change, core::ErrorPayload const& error, TimePoint now);

    /// The one that has been due for the longest, if any is. It stays until the next call about it.
    std::optional<Config_change> due(TimePoint now) const;

    /// When `due` has one again; `never` if none is waiting.
    TimePoint next_due() const;

    /// A newer change of the field is about to be delivered instead. If that fails too its retries start
    /// anew.
    void superseded(std::uint32_t field_id);

    /// The database may be well again: fields that could not be read (`ErrorCApi`) are due at once.
    void database_changed();

    /// The field is up to date.
    void succeeded(std::uint32_t field_id);

  private:
    struct Entry {
        Config_change change;
        FailureLog log;
        core::Error error = core::Error::NoError;
        int failures = 0; // in a row, since the newest change
        TimePoint due = never;
    };

    std::vector<Entry>::iterator find(std::uint32_t field_id);
    std::vector<Entry>::const_iterator earliest() const;

    core::ILogger& logger;
    std::vector<Entry> entries; // in order of arrival, which decides between two that are due together
};

} // namespace xpon::service
