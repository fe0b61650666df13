#pragma once

#include <string>
#include <string_view>

namespace xpon::core {

/// The text without its control characters (below 0x20, and 0x7F). What reads such a text line by line, or
/// obeys escape sequences, then takes nothing in it for an order.
std::string without_control_characters(std::string_view text);

} // namespace xpon::core
