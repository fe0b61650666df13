#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace xpon::cfgdb {

/// The number of letters to add, drop, change or exchange with the next one. Case is ignored, and a name that
/// is cut short counts as one change.
std::size_t distance(std::string_view from, std::string_view to);

/// Up to three names that are closest to the text, in their original order; none if no name is close.
std::vector<std::string> nearest(std::string_view text, std::vector<std::string> const& names);

/// "did you mean "a" or "b"?", with the quotes; empty if there are no names.
std::string did_you_mean(std::vector<std::string> const& near);

} // namespace xpon::cfgdb
