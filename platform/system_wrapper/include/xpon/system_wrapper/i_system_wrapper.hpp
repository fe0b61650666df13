#pragma once

#include <string>

#include "core/result.hpp"

namespace xpon::system_wrapper {

class ISystemWrapper {
  public:
    /// Runs a command in a shell that supports "&>" and waits for it. The value is the exit status, or 128 +
    /// n for a command ended by signal n. It is an error if the command could not be run, or ran too long and
    /// was killed. Safe from any thread; commands from several threads run in parallel.
    virtual core::Result<int> execute(std::string const& command) = 0;

    virtual ~ISystemWrapper() = default;
};

} // namespace xpon::system_wrapper
