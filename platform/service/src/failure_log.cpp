#include "failure_log.hpp"

#include <utility>

#include "core/log.hpp"

namespace xpon::service {

FailureLog::FailureLog(std::string what, core::ILogger& log)
  : action{std::move(what)}
  , logger{&log} {}

void FailureLog::failed(core::ErrorPayload const& error) {
    if (auto text = error.to_string(); text != reason) {
        core::log(*logger, core::log_failure, "{} failed: {}", action, text);
        reason = std::move(text);
    }
}

void FailureLog::worked() {
    if (!reason.empty()) {
        core::log(*logger, core::log_routine, "{} works again", action);
        reason.clear();
    }
}

} // namespace xpon::service
