#pragma once

// What the daemon reports to the service manager, phase by phase.

namespace xpon::log_config::status {

inline constexpr char const* starting = "STATUS=Startup LOG Configurator...";
inline constexpr char const* serving = "READY=1\nSTATUS=Processing requests...\n";
// systemd treats STOPPING=1 as a real stop, even before a restart of our own; see docs/operations.md.
inline constexpr char const* shutting_down = "STATUS=Shutdown LOG Configurator...\nSTOPPING=1\n";

inline constexpr char const* no_logging_context = "STATUS=Unable to create logging context.";
inline constexpr char const* no_zlog_files = "STATUS=Failed generate zlog config files";

/// The text for an object that cannot be created: with the text of a standard exception, or without.
struct CreationFailure {
    char const* exception;
    char const* unknown_exception;
};

inline constexpr CreationFailure log_subsystem{"STATUS=Exception on create log subsystem: {}.",
                                               "STATUS=Unknown exception on create log subsystem."};
// Here it is "Error"; the other texts say "Unknown exception".
inline constexpr CreationFailure ipc_subsystem{"STATUS=Exception on create IPC subsystem: {}.",
                                               "STATUS=Error on create IPC subsystem."};
inline constexpr CreationFailure cfgdb_subsystem{"STATUS=Exception on create CFGDB subsystem: {}.",
                                                 "STATUS=Unknown exception on create CFGDB subsystem."};
inline constexpr CreationFailure log_service{"STATUS=Exception on create LOG service: {}.",
                                             "STATUS=Unknown exception on create LOG service."};
inline constexpr CreationFailure service_launcher{"STATUS=Exception on create Service Launcher: {}.",
                                                  "STATUS=Unknown exception on create Service Launcher."};

} // namespace xpon::log_config::status
