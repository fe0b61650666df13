#include "table.hpp"

#include <algorithm>
#include <numeric>
#include <vector>

namespace xpon::logctl {

std::string aligned(std::function<void(AddLine const& add)> const& add_lines, bool coloured) {
    std::vector<std::size_t> widths; // all is plain ASCII
    std::size_t line_count = 0;
    add_lines([&](auto const& line) {
        widths.resize(line.size());
        std::ranges::transform(widths, line, widths.begin(), [](auto width, auto const& cell) {
            return std::max(width, cell.text.size());
        });
        ++line_count;
    });
    std::string text;
    text.reserve(line_count * std::accumulate(widths.begin(), widths.end(), 2 * widths.size()));
    add_lines([&](auto const& line) {
        for (std::size_t column = 0; auto const& [content, colour] : line) {
            bool const with_colour = coloured && !colour.empty();
            text += column == 0 ? "" : "  ";
            text += with_colour ? colour : "";
            text += content;
            text.append(column + 1 == line.size() ? 0 : widths[column] - content.size(), ' ');
            text += with_colour ? colour::plain : "";
            ++column;
        }
        text.erase(text.find_last_not_of(' ') + 1);
        text += '\n';
    });
    return text;
}

} // namespace xpon::logctl
