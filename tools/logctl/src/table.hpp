#pragma once

#include <concepts>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>

namespace xpon::logctl {

enum class Colour : std::uint8_t { Plain, Bold, Green, Yellow, Red };

/// What stands in one column of a line. Only looks at its text.
struct Cell {
    template <std::convertible_to<std::string_view> Text>
    Cell(Text const& content, Colour with_colour = Colour::Plain)
      : text{content}
      , colour{with_colour} {}

    std::string_view text;
    Colour colour;
};

/// Takes a table's next line.
using AddLine = std::function<void(std::initializer_list<Cell>)>;

/// Lines of equally many cells with their columns aligned; of a line, what is empty at its end is left out.
/// `add_lines` is called to measure and once more to write, and adds the same lines each time.
std::string aligned(std::function<void(AddLine const& add)> const& add_lines, bool coloured);

} // namespace xpon::logctl
