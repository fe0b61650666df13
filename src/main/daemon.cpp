#include "main/daemon.hpp"

#include <atomic>
#include <csignal>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <tuple>
#include <utility>

#include <fmt/format.h>
#include <malloc.h>
#include <systemd/sd-daemon.h>

#include "core/blocked_signals.hpp"
#include "core/failure.hpp"
#include "core/plain_text.hpp"
#include "main/status_texts.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"
#include "xpon/config_writer/config_writer.hpp"
#include "xpon/ipc/zmq_ipc.hpp"
#include "xpon/log_config/kernel/kernel_configurator.hpp"
#include "xpon/log_config/paths.hpp"
#include "xpon/log_config/rsh/remote_shell_logger.hpp"
#include "xpon/log_config/service/log_config_service.hpp"
#include "xpon/log_config/syslog_ng/syslog_configurator.hpp"
#include "xpon/log_config/zlog_files/generate_zlog_config_files.hpp"
#include "xpon/logger/logger.hpp"
#include "xpon/service/service_launcher.hpp"
#include "xpon/system_wrapper/system_wrapper.hpp"

namespace xpon::log_config {

using service::ServiceLauncher;
using service::ServiceMode;

namespace {

std::filesystem::path const pts_path{"/dev/pts"};

// Called by the signal handlers on the main thread. The main thread sets and clears them with the signals
// blocked.
std::function<void()> restart_service;
std::function<void()> stop_service;

void on_stop_signal(int /*signal*/) {
    if (stop_service) {
        stop_service();
    }
}

void on_restart_signal(int /*signal*/) {
    if (restart_service) {
        restart_service();
    }
}

/// Lets the signals stop the launcher, from its creation to its end.
void let_signals_reach(ServiceLauncher& launcher, std::atomic<bool>& restart) {
    core::BlockedSignals const while_assigning{SIGTERM, SIGINT, SIGHUP};
    stop_service = [&launcher, &restart] {
        restart = false;
        std::ignore = launcher.stop(); // a signal handler has nowhere to report a failure
    };
    restart_service = [&launcher] { std::ignore = launcher.stop(); };
}

void ignore_signals_again() {
    core::BlockedSignals const while_emptying{SIGTERM, SIGINT, SIGHUP};
    restart_service = nullptr;
    stop_service = nullptr;
}

void notify(char const* text) {
    sd_notify(0, text);
}

/// Returns the result of `make`, or nothing after reporting its exception to the service manager.
template <class Make>
auto create(status::CreationFailure const& failure, Make&& make)
    -> std::optional<std::invoke_result_t<Make>> {
    try {
        return std::forward<Make>(make)();
    } catch (std::exception const& exception) {
        // The service manager obeys assignments such as MAINPID= on any line, and the text may come from a
        // file.
        auto const reason = core::without_control_characters(exception.what());
        notify(fmt::format(fmt::runtime(failure.exception), reason).c_str());
    } catch (...) {
        notify(failure.unknown_exception);
    }
    return std::nullopt;
}

/// Creates all objects, serves, and destroys them in reverse order. False if something failed.
bool run_cycle(std::atomic<bool>& restart) {
    notify(status::starting);

    auto const context = core::caught([] {
        return logger::Logger::create_context("/etc/zlog_modules_config/LOG-CONFIG.conf", "LOG-CFG_IPC", 0);
    });
    if (!context.has_value()) {
        notify(status::no_logging_context);
        return false;
    }

    auto const logger = create(status::log_subsystem, []() -> std::shared_ptr<core::ILogger> {
        return std::make_shared<logger::Logger>("LOG-CFG");
    });
    if (!logger) {
        return false;
    }

    auto const ipc = create(status::ipc_subsystem,
                            [] { return ipc::make_zmq_ipc(ipc::Address{.value = 0xFFFF}, "LOG-CFG_IPC"); });
    if (!ipc) {
        return false;
    }

    auto const cfgdb = create(status::cfgdb_subsystem,
                              [] { return std::make_shared<cfgdb::CfgDbWrapper>("LOG-CFG_CFGDB"); });
    if (!cfgdb) {
        return false;
    }

    auto const system_wrapper = std::make_shared<system_wrapper::SystemWrapper>();
    // Held as the interfaces that the service takes. Otherwise the conversion in a constructor call that
    // throws would destroy the object, before the failure is reported and out of order.
    std::unique_ptr<IKernelConfigurator> kernel_configurator =
        std::make_unique<KernelConfigurator>(system_wrapper);
    std::unique_ptr<config_writer::IConfigWriter> writer =
        std::make_unique<config_writer::ConfigWriter>(syslog_ng_conf);
    std::unique_ptr<ISyslogConfigurator> syslog_configurator =
        std::make_unique<SyslogConfigurator>(system_wrapper, std::move(writer));
    std::unique_ptr<IRemoteShellLogger> rsh_logger =
        std::make_unique<RemoteShellLogger>(pts_path, system_wrapper, *logger, UpdateConfigCb{});

    auto log_files = generate_zlog_config_files(*cfgdb, *ipc, *logger);
    if (!log_files.has_value()) {
        notify(status::no_zlog_files);
        return false;
    }

    auto log_service = create(status::log_service, [&]() -> std::unique_ptr<service::IService> {
        return std::make_unique<LogConfigService>(*logger, *cfgdb, std::move(kernel_configurator),
                                                  std::move(syslog_configurator), std::move(rsh_logger),
                                                  std::move(log_files).value(), ServiceMode{1});
    });
    if (!log_service) {
        return false;
    }

    auto const launcher = create(status::service_launcher, [&] {
        return std::make_unique<ServiceLauncher>(std::move(*log_service), *logger, *ipc, true);
    });
    if (!launcher) {
        return false;
    }

    let_signals_reach(**launcher, restart);
    notify(status::serving);
    auto const served = (*launcher)->run();
    notify(status::shutting_down);
    ignore_signals_again();
    return served.has_value();
}

} // namespace

int run_daemon() {
    // The text of a large file, over a megabyte, is needed only for a moment. Blocks above this size, in
    // bytes, go back to the system when they are freed. By default the allocator would raise the limit and
    // keep the memory.
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);

    std::signal(SIGTERM, on_stop_signal);
    std::signal(SIGINT, on_stop_signal);
    std::signal(SIGHUP, on_restart_signal);

    std::atomic<bool> restart = true; // only the stop signals clear it
    static_assert(std::atomic<bool>::is_always_lock_free, "it is written in a signal handler");
    while (restart) {
        if (!run_cycle(restart)) {
            return 1;
        }
    }
    return 0;
}

} // namespace xpon::log_config
