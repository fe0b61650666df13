#pragma once

// What the daemon tells the service manager, phase by phase.

namespace xpon::log_config::status {

inline constexpr char const* starting = "STATUS=Startup LOG Configurator...";
inline constexpr char const* serving = "READY=1\nSTATUS=Processing requests...\n";
// systemd takes STOPPING=1 as a real stop, also before a restart of our own; see docs/operations.md.
inline constexpr char const* shutting_down = "STATUS=Shutdown LOG Configurator...\nSTOPPING=1\n";

inline constexpr char const* no_logging_context = "STATUS=Unable to create logging context.";
inline constexpr char const* no_zlog_files = "STATUS=Failed generate zlog config files";

/// What is said when an object cannot be created: with the text of a standard exception, or without one.
struct CreationFailure {
    char const* exception;
    char const* unknown_exception;
};

inline constexpr CreationFailure log_subsystem{"STATUS=Exception on create log subsystem: {}.",
                                               "STATUS=Unknown exception on create log subsystem."};
// "Error", where its siblings say "Unknown exception".
inline constexpr CreationFailure ipc_subsystem{"STATUS=Exception on create IPC subsystem: {}.",
                                               "STATUS=Error on create IPC subsystem."};
inline constexpr CreationFailure cfgdb_subsystem{"STATUS=Exception on create CFGDB subsystem: {}.",
                                                 "STATUS=Unknown exception on create CFGDB subsystem."};
inline constexpr CreationFailure log_service{"STATUS=Exception on create LOG service: {}.",
                                             "STATUS=Unknown exception on create LOG service."};
inline constexpr CreationFailure service_launcher{"STATUS=Exception on create Service Launcher: {}.",
                                                  "STATUS=Unknown exception on create Service Launcher."};

} // namespace xpon::log_config::status
