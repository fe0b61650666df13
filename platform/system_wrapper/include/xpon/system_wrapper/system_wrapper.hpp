#pragma once

#include <chrono>

#include "xpon/system_wrapper/i_system_wrapper.hpp"

namespace xpon::system_wrapper {

/// Runs commands with `bash -c`; other shells run "cmd &> file" in the background and report success. A
/// command runs in its own process group with standard input from /dev/null, default signal dispositions, an
/// empty signal mask and no inherited descriptor above 2. Its only environment variable is PATH, set to the
/// system's folders. Standard output and error are the caller's.
class SystemWrapper : public ISystemWrapper {
  public:
    /// The time limit after which a command's process group is killed.
    static constexpr std::chrono::milliseconds default_limit = std::chrono::seconds{30};

    /// If the process ignores SIGCHLD, restores its default disposition; otherwise no command would have an
    /// exit status.
    explicit SystemWrapper(std::chrono::milliseconds time_limit = default_limit);

    core::Result<int> execute(std::string const& command) override;

  private:
    std::chrono::milliseconds limit;
};

} // namespace xpon::system_wrapper
