#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>
#include <system_error>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include "broker/broker.hpp"
#include "xpon/ipc/zmq_ipc.hpp"

namespace xpon::ipc {

namespace {

constexpr char const* bus_group = "xpon";

/// Readable once the process was asked to end. Before any thread exists: all are to inherit the signal mask.
core::UniqueFd stop_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    core::UniqueFd fd{signalfd(-1, &signals, SFD_CLOEXEC)};
    if (!fd) {
        throw std::system_error{errno, std::generic_category(), "cannot wait for signals"};
    }
    return fd;
}

/// ZeroMQ ends the process when it has no descriptor left for a connection.
void allow_as_many_connections_as_possible() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

void serve(std::filesystem::path const& path) {
    auto const stop = stop_signals();
    // There is nothing to reload.
    std::signal(SIGHUP, SIG_IGN);
    allow_as_many_connections_as_possible();
    BusFolder folder{std::filesystem::absolute(path), group_named(bus_group)};
    Broker broker{folder};
    sd_notifyf(0, "READY=1\nSTATUS=Serving %s", folder.path().c_str());
    broker.run(stop.get());
    sd_notify(0, "STOPPING=1");
}

} // namespace

} // namespace xpon::ipc

int main(int argc, char** argv) {
    CLI::App app{"Message bus broker: forwards messages between the endpoints on this machine.",
                 "ipc-broker"};
    std::string folder = xpon::ipc::default_folder;
    app.add_option("--folder", folder, "Folder of the bus sockets")->capture_default_str();
    app.set_version_flag("--version", "ipc-broker " PROJECT_VERSION);
    try {
        app.parse(argc, argv);
    } catch (CLI::ParseError const& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    try {
        xpon::ipc::serve(folder);
    } catch (std::exception const& error) {
        fmt::print(stderr, "ipc-broker: {}\n", error.what());
        return 1;
    }
    return 0;
}
