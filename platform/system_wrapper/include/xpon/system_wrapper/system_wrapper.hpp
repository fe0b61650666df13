#pragma once

#include <chrono>

#include "xpon/system_wrapper/i_system_wrapper.hpp"

namespace xpon::system_wrapper {

/// Runs commands with `bash -c`: other shells take "cmd &> file" for a command in the background and report
/// success. A command runs in a process group of its own with standard input from /dev/null, the default
/// signal dispositions, an empty signal mask, no inherited descriptor above 2 and no inherited environment:
/// PATH leads to the system's folders, and that is the only variable. Its standard output and error are the
/// caller's.
class SystemWrapper : public ISystemWrapper {
  public:
    /// How long a command may run before its process group is killed.
    static constexpr std::chrono::milliseconds default_limit = std::chrono::seconds{30};

    /// If the process ignores SIGCHLD the signal gets its default disposition, for without it no command has
    /// an exit status.
    explicit SystemWrapper(std::chrono::milliseconds time_limit = default_limit);

    core::Result<int> execute(std::string const& command) override;

  private:
    std::chrono::milliseconds limit;
};

} // namespace xpon::system_wrapper
