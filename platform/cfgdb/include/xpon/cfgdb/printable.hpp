#pragma once

#include <string>
#include <string_view>

namespace xpon::cfgdb {

/// The text in double quotes, safe for a log line or a terminal: anything but plain ASCII becomes \xNN, and a
/// long text is cut.
std::string printable(std::string_view text);

/// A message of another library, made safe in the same way but without quotes; at most 300 bytes of it.
std::string plain(std::string_view text);

/// The text itself if it is plain ASCII, otherwise as `printable`. For names that come from outside.
std::string safe(std::string_view text);

} // namespace xpon::cfgdb
