#pragma once

namespace xpon::logctl {

/// Does what the command line asks for; the exit status: 0, 1 for a refusal or failure, 2 for a command line
/// that cannot be understood.
int run(int argc, char** argv);

} // namespace xpon::logctl
