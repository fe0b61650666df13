#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace xpon::cfgdb {

/// How many letters to add, drop or change; the case of a letter counts for nothing, a name cut short for
/// one.
std::size_t distance(std::string_view from, std::string_view to);

/// Up to three of the names that are most like the text, in their order; nothing where none is near.
std::vector<std::string> nearest(std::string_view text, std::vector<std::string> const& names);

} // namespace xpon::cfgdb
