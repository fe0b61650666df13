#include "wrapped.hpp"

#include <algorithm>

namespace xpon::logctl {

std::string wrapped(std::string_view text, std::size_t indent, std::size_t width) {
    auto const room = std::max(width, indent + 1) - indent;
    std::string lines;
    std::size_t used = 0; // of the room
    auto const go_on_below = [&] {
        lines += '\n';
        lines.append(indent, ' ');
        used = 0;
    };
    while (!text.empty()) {
        auto word = text.substr(0, text.find(' '));
        text.remove_prefix(std::min(word.size() + 1, text.size()));
        if (used > 0 && word.size() >= room - used) {
            go_on_below();
        } else if (used > 0) {
            lines += ' ';
            ++used;
        }
        for (; word.size() > room; word.remove_prefix(room)) {
            lines += word.substr(0, room);
            go_on_below();
        }
        lines += word;
        used += word.size();
    }
    return lines;
}

} // namespace xpon::logctl
