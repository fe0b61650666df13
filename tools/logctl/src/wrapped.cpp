#include "wrapped.hpp"

#include <algorithm>

namespace xpon::logctl {

std::string wrapped(std::string_view text, std::size_t indent, std::size_t width) {
    std::string lines;
    auto column = indent;
    while (!text.empty()) {
        auto const end = std::min(text.find(' '), text.size());
        if (!lines.empty() && column + 1 + end > width) {
            lines += '\n';
            lines.append(indent, ' ');
            column = indent;
        } else if (!lines.empty()) {
            lines += ' ';
            ++column;
        }
        lines += text.substr(0, end);
        column += end;
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

} // namespace xpon::logctl
