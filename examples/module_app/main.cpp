// A module of the board, as far as logging goes: it writes lines of every level through the logger, lets the
// file that log-config keeps for it decide which of them pass, and follows that file while it runs.
#include <array>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>
#include <system_error>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <sys/epoll.h>
#include <systemd/sd-daemon.h>
#include <systemd/sd-event.h>

#include "core/log.hpp"
#include "rules_follower.hpp"
#include "xpon/ipc/zmq_ipc.hpp"

namespace xpon::module_app {

namespace {

using core::LogLevel;

struct Options {
    std::uint32_t module = 9;
    std::string file = "/etc/zlog_modules_config/SNMP.conf";
    std::string category = "SNMP_TRAP";
    std::string bus = ipc::default_folder;
    unsigned interval_ms = 200;
};

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

/// What the handlers of the event loop work with.
struct Module {
    RulesFollower& follower;
    core::ILogger& logger;
    std::uint64_t interval_us;
    unsigned round = 0;
};

int take_messages(sd_event_source* /*source*/, int /*fd*/, std::uint32_t /*events*/, void* data) {
    auto const& module = *static_cast<Module*>(data);
    if (auto const taken = module.follower.take_messages(); taken.has_error()) {
        core::log(module.logger, LogLevel::Error, "{}", taken.error().to_string());
    }
    return 0;
}

int write_round(sd_event_source* timer, std::uint64_t /*time*/, void* data) {
    auto& module = *static_cast<Module*>(data);
    log_every_level(module.logger, ++module.round);
    sd_event_source_set_time_relative(timer, module.interval_us);
    return sd_event_source_set_enabled(timer, SD_EVENT_ONESHOT);
}

void require(int result, char const* what) {
    if (result < 0) {
        throw std::system_error{-result, std::generic_category(), what};
    }
}

/// Throws std::exception on whatever keeps the module from working.
void serve(Options const& options) {
    sd_event* loop = nullptr;
    require(sd_event_default(&loop), "no event loop");
    for (int const signal : {SIGTERM, SIGINT}) { // without a handler they end the loop
        require(sd_event_add_signal(loop, nullptr, signal | SD_EVENT_SIGNAL_PROCMASK, nullptr, nullptr),
                "cannot wait for signals");
    }
    logger::Logger logger{options.category};
    auto const bus = ipc::make_zmq_ipc(ipc::any_address, options.category, options.bus);
    auto const follower = RulesFollower::create(options.module, options.file, *bus, logger);
    if (follower.has_error()) {
        throw std::runtime_error{follower.error().to_string()};
    }
    Module module{*follower.value(), logger, options.interval_ms * std::uint64_t{1000}};
    require(sd_event_add_io(loop, nullptr, bus->receive_fd(), EPOLLIN, take_messages, &module),
            "cannot wait for the bus");
    if (module.interval_us > 0) {
        require(sd_event_add_time_relative(loop, nullptr, CLOCK_MONOTONIC, module.interval_us, 1000,
                                           write_round, &module),
                "no timer");
    }
    take_messages(nullptr, 0, 0, &module); // what came before the loop waits
    sd_notify(0, "READY=1");
    require(sd_event_loop(loop), "cannot wait");
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
