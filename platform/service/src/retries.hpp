#pragma once

#include <string>

#include "core/i_logger.hpp"
#include "core/result.hpp"

namespace xpon::service {

/// Says in the log that an action fails, once for each reason however often it is tried, and that it works
/// again.
class FailureLog {
  public:
    FailureLog(std::string action, core::ILogger& logger);

    void failed(core::ErrorPayload const& error);
    void worked();

  private:
    std::string action;
    core::ILogger* logger;
    std::string reason; // of the last failure; empty while it works
};

} // namespace xpon::service
