#include "trials/alarm.hpp"

#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/socket.h>
#include <unistd.h>

#include "core/failure.hpp"
#include "core/process.hpp"
#include "core/reason.hpp"
#include "process.hpp"

namespace xpon::logctl {

namespace {

using core::Error;
using core::fail;

bool systemd_runs() {
    return access("/run/systemd/system", F_OK) == 0 && access("/run/systemd/private", F_OK) == 0;
}

/// Also while an upgrade has just replaced it.
std::string this_program() {
    std::error_code unknown;
    auto path = std::filesystem::read_symlink("/proc/self/exe", unknown).string();
    constexpr std::string_view replaced = " (deleted)";
    if (path.ends_with(replaced)) {
        path.resize(path.size() - replaced.size());
    }
    return path;
}

} // namespace

Alarm::Alarm(Context const& context) {
    std::error_code unknown;
    // The first change of a database starts it before there is one.
    command = {this_program(), "--create", "--database", std::filesystem::absolute(context.database, unknown),
               "commit-confirm"};
}

core::Result<void> Alarm::set(cfgdb::BootInstant const& end, std::int64_t seconds) {
    // Other trials may end in the same second.
    auto const name = fmt::format("logctl-recover-{}-{}", end.seconds, getpid());
    if (systemd_runs() && start_timer(name, seconds)) {
        unit = name;
        return core::success();
    }
    return start_guard(end);
}

void Alarm::committed() {
    if (undecided) {
        std::ignore = send(undecided.get(), "", 1, MSG_NOSIGNAL); // the process may have been killed
        undecided.reset();
    }
}

void Alarm::cancel() {
    committed();
    stop_timer(unit);
}

bool Alarm::start_timer(std::string const& name, std::int64_t seconds) const {
    std::vector<std::string> argv{"systemd-run",
                                  "--quiet",
                                  "--collect",
                                  "--unit=" + name,
                                  fmt::format("--on-active={}", seconds),
                                  "--timer-property=AccuracySec=1s",
                                  "--timer-property=IgnoreOnIsolate=yes",
                                  "--property=Restart=on-failure", // until it could be undone
                                  "--property=RestartSec=10"};
    argv.insert(argv.end(), command.begin(), command.end());
    argv.emplace_back("--recover");
    auto const started = run_program(argv, {}, std::chrono::seconds{10});
    return started.has_value() && started.value().status == 0;
}

core::Result<void> Alarm::start_guard(cfgdb::BootInstant const& end) {
    std::array<int, 2> ends{-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        return fail(Error::CommonError, "no connection to a process in the background ({})",
                    core::reason_of(errno));
    }
    core::UniqueFd const theirs{ends[0]};
    undecided.reset(ends[1]);
    core::UniqueFd const nowhere{open("/dev/null", O_RDWR | O_CLOEXEC)};
    core::Program guard{.argv = command,
                        .environment = {},
                        .streams = {theirs.get(), nowhere.get(), nowhere.get()},
                        .own_session = true};
    guard.argv.insert(guard.argv.end(), {"--guard", std::to_string(end.seconds)});
    pid_t pid = -1;
    if (int const error = core::start(std::move(guard), pid); error != 0) {
        return fail(Error::CommonError, "no process in the background ({})", core::reason_of(error));
    }
    return core::success();
}

void stop_timer(std::string const& timer) {
    if (!timer.empty()) {
        std::ignore = run_program({"systemctl", "--quiet", "stop", timer + ".timer"});
    }
}

} // namespace xpon::logctl
