// A module of the board, as far as logging goes: it writes lines of every level through the logger, lets the
// file that log-config keeps for it decide which of them pass, and follows that file while it runs.
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>
#include <system_error>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/timerfd.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include "core/log.hpp"
#include "core/unique_fd.hpp"
#include "rules_follower.hpp"
#include "xpon/ipc/zmq_ipc.hpp"

namespace xpon::module_app {

namespace {

using core::LogLevel;
using core::UniqueFd;

struct Options {
    std::uint32_t module = 9;
    std::string file = "/etc/zlog_modules_config/SNMP.conf";
    std::string category = "SNMP_TRAP";
    std::string bus = ipc::default_folder;
    unsigned interval_ms = 200;
};

UniqueFd checked(int fd, char const* what) {
    if (fd < 0) {
        throw std::system_error{errno, std::generic_category(), what};
    }
    return UniqueFd{fd};
}

/// Readable once the process was asked to end. Before any thread exists: all are to inherit the signal mask.
UniqueFd stop_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return checked(signalfd(-1, &signals, SFD_CLOEXEC), "cannot wait for signals");
}

/// Readable at every interval; never with an interval of 0.
UniqueFd clock_of(unsigned interval_ms) {
    auto timer = checked(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK), "no timer");
    timespec const interval{.tv_sec = interval_ms / 1000, .tv_nsec = (interval_ms % 1000) * 1'000'000L};
    itimerspec const rhythm{.it_interval = interval, .it_value = interval};
    timerfd_settime(timer.get(), 0, &rhythm, nullptr);
    return timer;
}

/// One line of each level. They carry a number, since syslog-ng swallows repetitions.
void log_every_level(core::ILogger& logger, unsigned number) {
    static constexpr std::array<std::pair<LogLevel, char const*>, 6> levels{{
        {LogLevel::Debug, "debug"},
        {LogLevel::Info, "info"},
        {LogLevel::Notice, "notice"},
        {LogLevel::Warn, "warning"},
        {LogLevel::Error, "error"},
        {LogLevel::Fatal, "fatal"},
    }};
    for (auto const& [level, name] : levels) {
        core::log(logger, level, "round {}, {}.", number, name);
    }
}

/// Throws std::exception on whatever keeps the module from working.
void serve(Options const& options) {
    auto const stop = stop_signals();
    logger::Logger logger{options.category};
    auto const bus = ipc::make_zmq_ipc(ipc::any_address, options.category, options.bus);
    auto const follower = RulesFollower::create(options.module, options.file, *bus, logger);
    if (follower.has_error()) {
        throw std::runtime_error{follower.error().to_string()};
    }
    auto const timer = clock_of(options.interval_ms);
    sd_notify(0, "READY=1");

    std::array<pollfd, 3> watched{{
        {stop.get(), POLLIN, 0},
        {bus->receive_fd(), POLLIN, 0},
        {timer.get(), POLLIN, 0},
    }};
    unsigned round = 0;
    while (watched[0].revents == 0) {
        if (auto const taken = follower.value()->take_messages(); taken.has_error()) {
            core::log(logger, LogLevel::Error, "{}", taken.error().to_string());
        }
        std::uint64_t passed = 0;
        if (read(timer.get(), &passed, sizeof passed) == sizeof passed) {
            log_every_level(logger, ++round);
        }
        poll(watched.data(), watched.size(), -1);
    }
}

} // namespace

} // namespace xpon::module_app

int main(int argc, char** argv) {
    CLI::App app{"A module of the board that logs lines of every level and follows its file of log rules.",
                 "module-app"};
    xpon::module_app::Options options;
    app.add_option("--module", options.module, "The module's value on the bus")->capture_default_str();
    app.add_option("--file", options.file, "The module's file of log rules")->capture_default_str();
    app.add_option("--category", options.category, "The category of its lines")->capture_default_str();
    app.add_option("--bus", options.bus, "Folder of the bus sockets")->capture_default_str();
    app.add_option("--interval", options.interval_ms, "Milliseconds between two rounds of lines; 0: none")
        ->capture_default_str()
        ->check(CLI::Range(0U, 86'400'000U));
    app.set_version_flag("--version", "module-app " PROJECT_VERSION);
    try {
        app.parse(argc, argv);
    } catch (CLI::ParseError const& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    try {
        xpon::module_app::serve(options);
    } catch (std::exception const& error) {
        fmt::print(stderr, "module-app: {}\n", error.what());
        return 1;
    }
    return 0;
}
