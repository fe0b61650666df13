#include "process.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/failure.hpp"
#include "core/uninterrupted.hpp"
#include "core/unique_fd.hpp"

namespace xpon::logctl {

namespace {

using core::Error;
using core::fail;

constexpr std::array folders{"/usr/sbin", "/usr/bin", "/sbin", "/bin"};

std::string contents(int fd) {
    std::string text;
    std::array<char, 65536> buffer{};
    lseek(fd, 0, SEEK_SET);
    for (ssize_t length = 0; (length = read(fd, buffer.data(), buffer.size())) > 0;) {
        text.append(buffer.data(), static_cast<std::size_t>(length));
    }
    return text;
}

/// Files in memory instead of pipes: whatever the program writes, nobody waits for a reader.
struct Streams {
    core::UniqueFd in{memfd_create("stdin", MFD_CLOEXEC)};
    core::UniqueFd out{memfd_create("stdout", MFD_CLOEXEC)};
    core::UniqueFd err{memfd_create("stderr", MFD_CLOEXEC)};

    bool fill(std::string_view input) const {
        return in && out && err && write(in.get(), input.data(), input.size()) == std::ssize(input) &&
               lseek(in.get(), 0, SEEK_SET) == 0;
    }
};

int spawn(std::string const& program, std::vector<std::string> argv, Streams const& streams, pid_t& pid) {
    std::vector<char*> pointers(argv.size() + 1, nullptr);
    std::ranges::transform(argv, pointers.begin(), [](auto& text) { return text.data(); });

    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, streams.in.get(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&files, streams.out.get(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&files, streams.err.get(), STDERR_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes,
                             POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    auto path = fmt::format("PATH={}", fmt::join(folders, ":"));
    std::array<char*, 2> environment{path.data(), nullptr};
    int const error =
        posix_spawn(&pid, program.c_str(), &files, &attributes, pointers.data(), environment.data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    return error;
}

} // namespace

core::Result<std::string> find_program(std::string const& name) {
    for (std::filesystem::path const folder : folders) {
        if (auto path = folder / name; access(path.c_str(), X_OK) == 0) {
            return path.string();
        }
    }
    return fail(Error::CommonError, "{} is missing: it is in none of {}", name, fmt::join(folders, ", "));
}

core::Result<Finished> run_program(std::vector<std::string> const& argv, std::string_view input,
                                   std::chrono::milliseconds limit) {
    OUTCOME_TRY(program, find_program(argv.front()));
    Streams const streams;
    if (!streams.fill(input)) {
        return fail(Error::CommonError, "{}: no memory for its input and output ({})", argv.front(),
                    std::generic_category().message(errno));
    }
    pid_t pid = -1;
    if (int const error = spawn(program, argv, streams, pid); error != 0) {
        return fail(Error::CommonError, "{}: cannot be run ({})", argv.front(),
                    std::generic_category().message(error));
    }
    core::UniqueFd const end{static_cast<int>(syscall(SYS_pidfd_open, pid, 0))};
    pollfd wanted{end.get(), POLLIN, 0};
    bool const ended = poll(&wanted, 1, static_cast<int>(limit.count())) > 0;
    if (!ended) {
        kill(-pid, SIGKILL);
    }
    siginfo_t info{};
    bool const known =
        core::uninterrupted([&] { return waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED); }) == 0;
    if (ended && !known) {
        return fail(Error::CommonError, "{}: its exit status is lost ({})", argv.front(),
                    std::generic_category().message(errno));
    }
    if (!ended) {
        return fail(Error::CommonError, "{}: does not answer within {} s", argv.front(),
                    std::chrono::duration<double>{limit}.count());
    }
    return Finished{info.si_code == CLD_EXITED ? info.si_status : 128 + info.si_status,
                    contents(streams.out.get()), contents(streams.err.get())};
}

} // namespace xpon::logctl
