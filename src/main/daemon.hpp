#pragma once

namespace xpon::log_config {

/// The whole life of the daemon: starts, serves, and starts again on SIGHUP. Returns 0 after SIGTERM or
/// SIGINT, and 1 after a failure that was reported to the service manager or logged. Call it once, from
/// main(): it installs signal handlers. Exceptions from steps without a status text end the process.
int run_daemon();

} // namespace xpon::log_config
