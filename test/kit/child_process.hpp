#pragma once

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/unique_fd.hpp"
#include "kit/wait_readable.hpp"

namespace xpon::test {

/// What to run, and how.
struct Command {
    // NOLINTBEGIN(readability-redundant-member-init): without them a partial initialiser is a warning
    std::vector<std::string> argv;             ///< the program is searched for in PATH
    std::vector<std::string> environment = {}; ///< "NAME=value" each, in addition to the test's own
    std::filesystem::path output = {}; ///< file for what it writes, appended; empty: where the test writes
    // NOLINTEND(readability-redundant-member-init)
};

/// A process of the test's own, with the default signal dispositions, an empty signal mask, no input and no
/// inherited descriptor. Killed and reaped at the end, whatever state it is in.
class ChildProcess {
  public:
    /// Throws std::system_error if the program cannot be run.
    explicit ChildProcess(Command const& command)
      : id{spawn(command)}
      , end{static_cast<int>(syscall(SYS_pidfd_open, id, 0))} // glibc 2.36 has it for C only
    {
        if (!end) {
            check(errno, "pidfd_open");
        }
    }

    ChildProcess(ChildProcess&& other) noexcept = default;
    ChildProcess& operator=(ChildProcess&& other) noexcept {
        std::swap(id, other.id);
        std::swap(end, other.end);
        std::swap(status, other.status);
        return *this;
    }
    ~ChildProcess() {
        if (end && !status) {
            kill(SIGKILL);
            reap();
        }
    }

    pid_t pid() const { return id; }

    /// Sends a signal; nothing happens once `wait` has returned a status.
    void kill(int signal) const {
        if (!status) {
            ::kill(id, signal);
        }
    }

    /// Waits for the end: the exit status, 128 + n after death by signal n; nothing at the deadline.
    std::optional<int> wait(std::chrono::milliseconds deadline = default_deadline) {
        if (!status && wait_readable(end.get(), deadline)) {
            reap();
        }
        return status;
    }

    /// Ends the process as an operator would.
    std::optional<int> terminate() {
        kill(SIGTERM);
        return wait();
    }

  private:
    static void check(int error, char const* what) {
        if (error != 0) {
            throw std::system_error{error, std::generic_category(), what};
        }
    }

    static std::vector<char*> pointers(std::vector<std::string>& texts) {
        std::vector<char*> all(texts.size() + 1, nullptr);
        std::ranges::transform(texts, all.begin(), [](auto& text) { return text.data(); });
        return all;
    }

    /// The additions come first and replace what the test itself has under the same name.
    static std::vector<std::string> merged_environment(std::vector<std::string> const& additions) {
        auto merged = additions;
        for (char** entry = environ; *entry != nullptr; ++entry) {
            std::string_view const text{*entry};
            auto const name = text.substr(0, text.find('=') + 1);
            if (std::ranges::none_of(additions,
                                     [&](auto const& addition) { return addition.starts_with(name); })) {
                merged.emplace_back(text);
            }
        }
        return merged;
    }

    static pid_t spawn(Command const& command) {
        auto argv = command.argv;
        auto environment = merged_environment(command.environment);

        posix_spawn_file_actions_t files;
        posix_spawn_file_actions_init(&files);
        posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        if (!command.output.empty()) {
            posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, command.output.c_str(),
                                             O_WRONLY | O_CREAT | O_APPEND, S_IRUSR | S_IWUSR);
            posix_spawn_file_actions_adddup2(&files, STDOUT_FILENO, STDERR_FILENO);
        }
        posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);

        posix_spawnattr_t attributes;
        posix_spawnattr_init(&attributes);
        sigset_t signals;
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&attributes, &signals);
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&attributes, &signals);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);

        pid_t pid = -1;
        int const error = posix_spawnp(&pid, argv.at(0).c_str(), &files, &attributes, pointers(argv).data(),
                                       pointers(environment).data());
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&files);
        check(error, argv.at(0).c_str());
        return pid;
    }

    void reap() {
        siginfo_t info{};
        while (waitid(P_PID, static_cast<id_t>(id), &info, WEXITED) != 0 && errno == EINTR) {
        }
        status = info.si_code == CLD_EXITED ? info.si_status : 128 + info.si_status;
    }

    pid_t id;
    core::UniqueFd end; // readable once the process has ended
    std::optional<int> status;
};

} // namespace xpon::test
