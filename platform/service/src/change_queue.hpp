#pragma once

#include <deque>
#include <vector>

#include "core/i_logger.hpp"
#include "core/result.hpp"
#include "retry_schedule.hpp"
#include "xpon/cfgdb/config_change.hpp"

namespace xpon::service {

/// Decides what the service is told about changed fields, and when. A handler stops at its first failing
/// step, so after an error each field of the list is delivered again alone: one bad field must not cost the
/// others their change. A field that fails alone is retried on a schedule until it succeeds.
class ChangeQueue {
  public:
    using List = std::vector<Config_change>;

    explicit ChangeQueue(core::ILogger& logger);

    /// A list from the feed. It takes the place of its fields' retries, and ends the wait of fields that
    /// could not be read: the database was read just now.
    void add(List list);

    /// When `next` has something: `at_once`, the time of a retry, or `never`.
    TimePoint due() const;

    /// What to deliver now, valid until the next call; empty if nothing is due. What became of it is then
    /// told by `succeeded` or `failed`.
    List const& next(TimePoint now);

    void succeeded();

    void failed(core::ErrorPayload const& error, TimePoint now);

  private:
    core::ILogger& logger;
    std::deque<List> waiting;
    RetrySchedule retries;
    List current;
};

} // namespace xpon::service
