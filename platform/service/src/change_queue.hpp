#pragma once

#include <deque>
#include <vector>

#include "core/i_logger.hpp"
#include "core/result.hpp"
#include "retries.hpp"
#include "xpon/cfgdb/config_change.hpp"

namespace xpon::service {

/// Decides what the service is told about changed fields, and when. A handler stops at its first failing
/// step, so after an error each field of the list is delivered again alone: one bad field must not cost the
/// others their change. A field that fails alone is retried at longer and longer intervals until it succeeds.
/// The log tells of each field's failure once for each reason, and that it works again; so it does of a list
/// whose fields all succeed alone.
class ChangeQueue {
  public:
    using List = std::vector<Config_change>;

    explicit ChangeQueue(core::ILogger& logger);

    /// A list from the feed. It takes the place of its fields' retries, whose intervals start again, and ends
    /// the wait of fields that could not be read (`ErrorCApi`): the database was read just now.
    void add(List list);

    /// When `next` has something: `at_once`, the time of a retry, or `never`.
    TimePoint due() const;

    /// What to deliver now, valid until the next call; empty if nothing is due. Lists come first, then the
    /// retry that has been due for the longest. `succeeded` or `failed` then reports the outcome.
    List const& next(TimePoint now);
    void succeeded();
    void failed(core::ErrorPayload const& error, TimePoint now);

  private:
    /// A field whose change could not be applied.
    struct Failing {
        Config_change change;
        Retries retries; // since the newest change
        core::Error error = core::Error::NoError;
        TimePoint retry = never;
    };

    std::vector<Failing>::iterator find(std::uint32_t field_id);
    std::vector<Failing>::const_iterator earliest_retry() const;
    void retry_later(Config_change const& change, core::ErrorPayload const& error, TimePoint now);

    core::ILogger& logger;
    std::deque<List> waiting;
    std::vector<Failing> failing; // in the order of their first failure, which decides between equal times
    List current;
    std::size_t broken = 0; // fields of the last list that failed; 0 once one of them has failed alone
    std::size_t alone = 0;  // how many of them are still to be delivered
};

} // namespace xpon::service
