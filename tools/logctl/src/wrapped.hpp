#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace xpon::logctl {

/// The text in lines of at most `width` columns, broken between words, or within one that is longer. The lines after
/// the first begin with `indent` blanks, for which the first has room too: it follows a heading of this length.
std::string wrapped(std::string_view text, std::size_t indent, std::size_t width);

} // namespace xpon::logctl
