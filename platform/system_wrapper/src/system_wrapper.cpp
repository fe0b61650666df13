#include "xpon/system_wrapper/system_wrapper.hpp"

#include <algorithm>
#include <limits>
#include <system_error>

#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern "C" {
#include <sys/pidfd.h> // glibc 2.36 declares it for C only
}

#include "core/failure.hpp"
#include "core/uninterrupted.hpp"
#include "core/unique_fd.hpp"

namespace xpon::system_wrapper {

namespace {

using core::Error;
using core::fail;
using core::Result;
using std::chrono::milliseconds;

constexpr char const* shell = "/bin/bash";
constexpr char const* empty_input = "/dev/null";
constexpr char const* environment[] = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin", nullptr};

/// How often the end of a command is looked for where the kernel cannot announce it.
constexpr milliseconds look_again{10};

std::string reason(int error_number) {
    return std::generic_category().message(error_number);
}

/// The beginning of a command text, enough to recognise it in a message.
std::string_view shown(std::string const& command) {
    return std::string_view{command}.substr(0, 500);
}

/// What a command finds when it starts.
class StartState {
  public:
    explicit StartState(int standard_input) {
        sigset_t every;
        sigset_t none;
        sigfillset(&every);
        sigemptyset(&none);
        posix_spawnattr_init(&attributes);
        posix_spawnattr_setflags(&attributes,
                                 POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
        posix_spawnattr_setpgroup(&attributes, 0);
        posix_spawnattr_setsigdefault(&attributes, &every);
        posix_spawnattr_setsigmask(&attributes, &none);

        posix_spawn_file_actions_init(&actions);
        error = posix_spawn_file_actions_adddup2(&actions, standard_input, STDIN_FILENO);
        if (error == 0) {
            error = posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
        }
    }
    ~StartState() {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    StartState(StartState const&) = delete;
    StartState& operator=(StartState const&) = delete;

    /// 0, or the error number of what went wrong.
    int run(char const* const* arguments, pid_t& pid) const {
        return error != 0 ? error
                          : posix_spawn(&pid, shell, &actions, &attributes, unchanged(arguments),
                                        unchanged(environment));
    }

  private:
    /// C has no better type for texts that are only read.
    static char* const* unchanged(char const* const* texts) { return const_cast<char* const*>(texts); }

    posix_spawnattr_t attributes{};
    posix_spawn_file_actions_t actions{};
    int error = 0;
};

Result<pid_t> start(std::string const& command) {
    core::UniqueFd const input{::open(empty_input, O_RDONLY | O_CLOEXEC)};
    if (!input) {
        return fail(Error::CommonError, "Cannot open {} for command \"{}\": {}", empty_input, shown(command),
                    reason(errno));
    }
    // Without "--" a text that begins with a dash would be taken for options of the shell.
    char const* const arguments[] = {shell, "-c", "--", command.c_str(), nullptr};
    pid_t pid = 0;
    if (int const error = StartState{input.get()}.run(arguments, pid); error != 0) {
        return fail(Error::CommonError, "Cannot run {} for command \"{}\": {}", shell, shown(command),
                    reason(error));
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
    core::UniqueFd const process{::pidfd_open(pid, 0)};
    // poll() passes over a descriptor of -1: without a pidfd what remains of it is the pause.
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

/// The exit status, or -1 with errno where it cannot be had.
int reap(pid_t pid) {
    int status = 0;
    if (core::uninterrupted([&] { return ::waitpid(pid, &status, 0); }) < 0) {
        return -1;
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

} // namespace

SystemWrapper::SystemWrapper(milliseconds time_limit)
  : limit{time_limit} {
    // A process inherits this from the one that started it, and the kernel then drops every exit status.
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
    int const status = reap(pid);
    if (!in_time) {
        return fail(Error::CommonError, "Command \"{}\" ran longer than {} ms and was killed", shown(command),
                    limit.count());
    }
    if (status < 0) {
        return fail(Error::CommonError, "Exit status of command \"{}\" is lost: {}", shown(command),
                    reason(errno));
    }
    return status;
}

} // namespace xpon::system_wrapper
