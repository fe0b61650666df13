#pragma once

#include <string>
#include <utility>

#include "core/i_logger.hpp"
#include "core/log.hpp"
#include "core/result.hpp"
#include "timing.hpp"

namespace xpon::service {

/// An action that is tried again after a failure: at longer and longer intervals, and with one line in the
/// log for each reason, however often it fails, and one when it works again.
class Retries {
  public:
    /// `what` names the action in the log.
    Retries(std::string what, core::ILogger& log)
      : action{std::move(what)}
      , logger{&log} {}

    /// Returns when to try again.
    TimePoint failed(core::ErrorPayload const& error, TimePoint now) {
        if (auto text = error.to_string(); text != reason) {
            core::log(*logger, core::log_failure, "{} failed: {}", action, text);
            reason = std::move(text);
        }
        return now + retry_delay(failures++);
    }

    /// The intervals start again.
    void restart() { failures = 0; }

    void worked() {
        restart();
        if (!std::exchange(reason, {}).empty()) {
            core::log(*logger, core::log_routine, "{} works again", action);
        }
    }

  private:
    std::string action;
    core::ILogger* logger;
    std::string reason; // of the last failure; empty while it works
    int failures = 0;   // in a row
};

} // namespace xpon::service
