#pragma once

#include <array>
#include <string>

#include "xpon/cfgdb/syslog_settings.hpp"

namespace xpon::log_config {

/// Entry N is true while a remote shell is open on /dev/pts/N.
using OpenShells = std::array<bool, 16>;

/// The whole text of syslog-ng.conf for these settings and terminals. Checks and escapes nothing: a level
/// above 5 produces the name of a filter that does not exist.
std::string syslog_ng_text(SyslogSettings const& settings, OpenShells const& shells);

/// Whether the filter of a level (0 to 5) lets a message of this severity pass: 0 emergency to 7 debug, as
/// syslog numbers them.
bool passes(unsigned level, unsigned severity);

} // namespace xpon::log_config
