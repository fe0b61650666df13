#include "xpon/system_wrapper/system_wrapper.hpp"

#include <algorithm>
#include <limits>

#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>

#include "core/failure.hpp"
#include "core/process.hpp"
#include "core/reason.hpp"

namespace xpon::system_wrapper {

namespace {

using core::Error;
using core::fail;
using core::Result;
using std::chrono::milliseconds;

constexpr char const* shell = "/bin/bash";
constexpr char const* empty_input = "/dev/null";
constexpr char const* search_path = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";

/// How often to check whether a command has ended if the kernel cannot announce it.
constexpr milliseconds look_again{10};

/// The beginning of a command text, enough to recognise it in a message.
std::string_view shown(std::string const& command) {
    return std::string_view{command}.substr(0, 500);
}

Result<pid_t> start(std::string const& command) {
    core::UniqueFd const input{::open(empty_input, O_RDONLY | O_CLOEXEC)};
    if (!input) {
        return fail(Error::CommonError, "Cannot open {} for command \"{}\": {}", empty_input, shown(command),
                    core::reason_of(errno));
    }
    pid_t pid = 0;
    // Without "--" a text that begins with a dash would be taken for options of the shell.
    int const error = core::start({.argv = {shell, "-c", "--", command},
                                   .environment = {search_path},
                                   .streams = {input.get(), STDOUT_FILENO, STDERR_FILENO},
                                   .own_group = true},
                                  pid);
    if (error != 0) {
        return fail(Error::CommonError, "Cannot run {} for command \"{}\": {}", shell, shown(command),
                    core::reason_of(error));
    }
    return pid;
}

/// Also true for a process that somebody else has reaped.
bool has_ended(pid_t pid) {
    siginfo_t state{};
    return ::waitid(P_PID, static_cast<id_t>(pid), &state, WEXITED | WNOHANG | WNOWAIT) != 0 ||
           state.si_pid != 0;
}

/// Waits for the end of a process without reaping it; false once the limit has passed.
bool ends_within(pid_t pid, milliseconds limit) {
    auto const begin = std::chrono::steady_clock::now();
    auto const process = core::open_pidfd(pid);
    // poll() ignores a descriptor of -1: without a pidfd it is only a pause.
    auto const longest_pause = process ? milliseconds{std::numeric_limits<int>::max()} : look_again;
    while (!has_ended(pid)) {
        auto const passed = std::chrono::floor<milliseconds>(std::chrono::steady_clock::now() - begin);
        if (passed >= limit) {
            return false;
        }
        pollfd end{.fd = process.get(), .events = POLLIN, .revents = 0};
        ::poll(&end, 1, static_cast<int>(std::min(limit - passed, longest_pause).count()));
    }
    return true;
}

} // namespace

SystemWrapper::SystemWrapper(milliseconds time_limit)
  : limit{time_limit} {
    // A process inherits this from its parent; the kernel then discards every exit status.
    struct sigaction inherited{};
    if (::sigaction(SIGCHLD, nullptr, &inherited) == 0 && inherited.sa_handler == SIG_IGN) {
        std::signal(SIGCHLD, SIG_DFL);
    }
}

Result<int> SystemWrapper::execute(std::string const& command) {
    if (auto const place = command.find('\0'); place != std::string::npos) {
        return fail(Error::InvalidInputArg, "Command \"{}\" goes on after a NUL byte",
                    shown(command).substr(0, place));
    }
    OUTCOME_TRY(pid, start(command));
    bool const in_time = ends_within(pid, limit);
    if (!in_time) {
        ::kill(-pid, SIGKILL);
    }
    int const status = core::reap(pid);
    if (!in_time) {
        return fail(Error::CommonError, "Command \"{}\" ran longer than {} ms and was killed", shown(command),
                    limit.count());
    }
    if (status < 0) {
        return fail(Error::CommonError, "Exit status of command \"{}\" is lost: {}", shown(command),
                    core::reason_of(errno));
    }
    return status;
}

} // namespace xpon::system_wrapper
