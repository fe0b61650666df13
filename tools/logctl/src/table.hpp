#pragma once

#include <concepts>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>

#include "output.hpp"

namespace xpon::logctl {

namespace colour {
inline constexpr std::string_view bold = "\x1b[1m";
inline constexpr std::string_view green = "\x1b[32m";
inline constexpr std::string_view yellow = "\x1b[33m";
inline constexpr std::string_view red = "\x1b[31m";
inline constexpr std::string_view plain = "\x1b[0m";
} // namespace colour

/// What stands in one column of a line. Only looks at its text.
struct Cell {
    template <std::convertible_to<std::string_view> Text>
    Cell(Text const& content, std::string_view with_colour = {})
      : text{content}
      , colour{with_colour} {}

    std::string_view text;
    std::string_view colour;
};

/// Takes a table's next line.
using AddLine = std::function<void(std::initializer_list<Cell>)>;

/// What becomes of a last column that does not fit: it is shortened like the others, or goes on below. Of headings,
/// which stand in the first line, the last is then left out.
enum class LastColumn { Shortened, Wrapped, WrappedUnderHeading };

/// Lines of equally many cells with their columns aligned; of a line, what is empty at its end is left out. Where
/// the screen is too narrow, the widest columns are shortened and end in "…". `add_lines` is called to measure and
/// once more to write, and adds the same lines each time.
std::string aligned(std::function<void(AddLine const& add)> const& add_lines, Screen const& screen,
                    LastColumn last_column = LastColumn::Shortened);

/// The text, which is plain ASCII, shortened to this many columns.
std::string shortened(std::string_view text, std::size_t width);

} // namespace xpon::logctl
