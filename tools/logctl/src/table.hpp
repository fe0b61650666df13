#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace xpon::logctl {

namespace colour {
inline constexpr std::string_view bold = "\x1b[1m";
inline constexpr std::string_view green = "\x1b[32m";
inline constexpr std::string_view yellow = "\x1b[33m";
inline constexpr std::string_view red = "\x1b[31m";
inline constexpr std::string_view plain = "\x1b[0m";
} // namespace colour

struct Cell {
    Cell(std::string content, std::string_view with_colour = {})
      : text{std::move(content)}
      , colour{with_colour} {}

    std::string text;
    std::string_view colour;
};

using Line = std::vector<Cell>;

/// Lines of equally many cells with their columns aligned; of a line, what is empty at its end is left out.
std::string aligned(std::vector<Line> const& lines, bool coloured);

} // namespace xpon::logctl
