#pragma once

#include <string>

#include "core/result.hpp"

namespace xpon::system_wrapper {

class ISystemWrapper {
  public:
    /// Runs a command text with a shell that accepts "&>" and waits for it. The value is the exit status,
    /// 128 + n for a command ended by signal n; an error means that it could not be run, or that it ran too
    /// long and was killed. Safe from any thread; commands of several threads run side by side.
    virtual core::Result<int> execute(std::string const& command) = 0;

    virtual ~ISystemWrapper() = default;
};

} // namespace xpon::system_wrapper
