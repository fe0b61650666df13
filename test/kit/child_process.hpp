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
#include <unistd.h>

#include "core/process.hpp"
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
      , end{core::open_pidfd(id)} {
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
            core::reap(id);
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
            status = core::reap(id);
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
        core::UniqueFd const input{open("/dev/null", O_RDONLY | O_CLOEXEC)};
        core::Program program{.argv = command.argv, .environment = merged_environment(command.environment)};
        program.streams.at(0) = input.get();
        core::UniqueFd output;
        if (!command.output.empty()) {
            output.reset(
                open(command.output.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, S_IRUSR | S_IWUSR));
            check(output ? 0 : errno, command.output.c_str());
            program.streams = {input.get(), output.get(), output.get()};
        }
        pid_t pid = -1;
        check(core::start(std::move(program), pid), command.argv.at(0).c_str());
        return pid;
    }

    pid_t id;
    core::UniqueFd end; // readable once the process has ended
    std::optional<int> status;
};

} // namespace xpon::test
