#include "core/process.hpp"

#include <algorithm>
#include <csignal>

#include <spawn.h>
#include <sys/wait.h>

extern "C" {
#include <sys/pidfd.h> // glibc 2.36 declares it for C only
}

#include "core/uninterrupted.hpp"

namespace xpon::core {

namespace {

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> all(texts.size() + 1, nullptr);
    std::ranges::transform(texts, all.begin(), [](auto& text) { return text.data(); });
    return all;
}

/// Adds the steps between fork and exec; returns 0 or an error number.
int add_streams(posix_spawn_file_actions_t& actions, std::array<int, 3> const& streams) {
    for (int target = 0; int const stream : streams) {
        if (int const error = posix_spawn_file_actions_adddup2(&actions, stream, target++); error != 0) {
            return error;
        }
    }
    return posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
}

} // namespace

int start(Program program, pid_t& pid) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    int error = add_streams(actions, program.streams);

    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t signals;
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    posix_spawnattr_setpgroup(&attributes, 0);
    int const group = program.own_group ? POSIX_SPAWN_SETPGROUP : 0;
    int const session = program.own_session ? POSIX_SPAWN_SETSID : 0;
    posix_spawnattr_setflags(
        &attributes, static_cast<short>(POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | group | session));

    if (error == 0) {
        error = posix_spawnp(&pid, program.argv.at(0).c_str(), &actions, &attributes,
                             pointers(program.argv).data(), pointers(program.environment).data());
    }
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

UniqueFd open_pidfd(pid_t pid) {
    return UniqueFd{::pidfd_open(pid, 0)};
}

int reap(pid_t pid) {
    int status = 0;
    if (uninterrupted([&] { return ::waitpid(pid, &status, 0); }) < 0) {
        return -1;
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

} // namespace xpon::core
