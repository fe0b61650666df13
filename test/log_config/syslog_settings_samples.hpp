#pragma once

#include <cstring>
#include <string>

#include "xpon/cfgdb/syslog_settings.hpp"

namespace xpon::log_config {

inline void set_receiver(SyslogSettings& settings, int number, std::string const& address,
                         std::uint16_t port) {
    auto& receiver = settings.remote.dest[number - 1];
    std::strncpy(receiver.address, address.c_str(), sizeof receiver.address);
    receiver.port = port;
}

/// The defaults, written out once more: file info, console error, everything else notice, no receiver.
inline SyslogSettings default_settings() {
    SyslogSettings settings{};
    std::strcpy(settings.file.path, "/var/log/");
    settings.file.size = 1048576;
    settings.file.level = 4;
    settings.console.level = 1;
    for (int number = 1; number <= 3; ++number) {
        set_receiver(settings, number, "0.0.0.0", 514);
    }
    settings.remote.level = 3;
    settings.kernel.level = 2;
    settings.rsh.level = 3;
    return settings;
}

} // namespace xpon::log_config
