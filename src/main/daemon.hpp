#pragma once

namespace xpon::log_config {

/// The whole life of the daemon: starts, serves, and starts again on SIGHUP, until SIGTERM or SIGINT (returns
/// 0) or a failure (returns 1; the service manager has been told which). To be called once, from main(): it
/// installs signal handlers. Exceptions of the steps that report no failure of their own end the process.
int run_daemon();

} // namespace xpon::log_config
