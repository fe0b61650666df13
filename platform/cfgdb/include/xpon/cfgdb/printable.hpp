#pragma once

#include <string>
#include <string_view>

namespace xpon::cfgdb {

/// The text in double quotes, safe in a log line or on a terminal: anything but plain ASCII as \xNN, a long
/// one cut.
std::string printable(std::string_view text);

} // namespace xpon::cfgdb
