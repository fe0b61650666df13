#pragma once

#include <array>
#include <string>
#include <vector>

#include <sys/types.h>
#include <unistd.h>

#include "core/unique_fd.hpp"

namespace xpon::core {

/// A program to start. It finds default signal dispositions, an empty signal mask and no descriptor above 2.
struct Program {
    std::vector<std::string> argv;        ///< a first word without a slash is searched for in PATH
    std::vector<std::string> environment; ///< "NAME=value" each, and nothing else
    /// The descriptors that become its standard input, output and error.
    std::array<int, 3> streams{STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO};
    bool own_group = false;   ///< it leads a new process group
    bool own_session = false; ///< it leads a new session, without a terminal
};

/// Starts a program. Returns 0, or the error number of what went wrong.
int start(Program program, pid_t& pid);

/// A descriptor that becomes readable when the process has ended; an empty one, with `errno`, on failure.
UniqueFd open_pidfd(pid_t pid);

/// Waits for the end of a child. Returns its exit status, or 128 + n after death by signal n, or -1 with
/// `errno` if somebody else has taken the status.
int reap(pid_t pid);

} // namespace xpon::core
