#pragma once

#include <string>
#include <string_view>

namespace xpon::cfgdb {

/// The text in double quotes, safe in a log line or on a terminal: anything but plain ASCII as \xNN, a long
/// one cut.
std::string printable(std::string_view text);

/// A message of another library, just as safe but without quotes; up to 300 bytes of it.
std::string plain(std::string_view text);

/// The text itself if it is plain ASCII, else as `printable`: a name that comes from outside.
std::string safe(std::string_view text);

} // namespace xpon::cfgdb
