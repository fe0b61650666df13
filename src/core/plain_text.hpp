#pragma once

#include <string>
#include <string_view>

namespace xpon::core {

/// Returns the text without control characters (below 0x20, and 0x7F). A program that reads it line by line,
/// or obeys escape sequences, then finds no command in it.
std::string without_control_characters(std::string_view text);

} // namespace xpon::core
