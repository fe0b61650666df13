#include "table.hpp"

#include <algorithm>
#include <numeric>

namespace xpon::logctl {

std::string aligned(std::vector<Line> const& lines, bool coloured) {
    std::vector<std::size_t> widths;
    for (auto const& line : lines) {
        widths.resize(std::max(widths.size(), line.size()));
        for (std::size_t i = 0; i < line.size(); ++i) {
            widths[i] = std::max(widths[i], line[i].text.size());
        }
    }
    std::string text;
    text.reserve(lines.size() * std::accumulate(widths.begin(), widths.end(), 2 * widths.size()));
    for (auto const& line : lines) {
        for (std::size_t i = 0; i < line.size(); ++i) {
            auto const& [content, colour] = line[i];
            bool const with_colour = coloured && !colour.empty();
            text += i == 0 ? "" : "  ";
            text += with_colour ? colour : "";
            text += content;
            text.append(i + 1 == line.size() ? 0 : widths[i] - content.size(), ' '); // all is plain ASCII
            text += with_colour ? colour::plain : "";
        }
        text.erase(text.find_last_not_of(' ') + 1);
        text += '\n';
    }
    return text;
}

} // namespace xpon::logctl
