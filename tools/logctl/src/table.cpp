#include "table.hpp"

#include <algorithm>
#include <numeric>
#include <vector>

#include "wrapped.hpp"

namespace xpon::logctl {

namespace {

constexpr std::size_t gap = 2; // between two columns
using Widths = std::vector<std::size_t>;

std::size_t whole(Widths const& widths) {
    return std::accumulate(widths.begin(), widths.end(),
                           gap * (widths.size() - std::min<std::size_t>(1, widths.size())));
}

/// Takes from the widest until all fit, or none is wide.
void shorten(Widths& widths, std::size_t width) {
    constexpr std::size_t narrow = 3;
    for (auto total = whole(widths); total > width; --total) {
        auto const widest = std::ranges::max_element(widths);
        if (widest == widths.end() || *widest <= narrow) {
            return;
        }
        --*widest;
    }
}

/// The columns as they are shown. The last one is as wide as it may be where it goes on below; 0 if that is in lines
/// of its own.
Widths fitted(Widths widths, std::size_t width, LastColumn last_column) {
    if (widths.empty() || whole(widths) <= width) {
        return widths;
    }
    if (last_column == LastColumn::Shortened) {
        shorten(widths, width);
        return widths;
    }
    constexpr std::size_t enough = 46; // for the path of any output
    widths.pop_back();
    auto const before = whole(widths) + gap;
    if (before + enough > width) {
        shorten(widths, width);
        widths.push_back(0);
    } else {
        widths.push_back(width - before);
    }
    return widths;
}

} // namespace

std::string shortened(std::string_view text, std::size_t width) {
    return text.size() <= width ? std::string{text}
                                : std::string{text.substr(0, std::max<std::size_t>(width, 1) - 1)} + "…";
}

std::string aligned(std::function<void(AddLine const& add)> const& add_lines, Screen const& screen,
                    LastColumn last_column) {
    Widths wanted; // all is plain ASCII
    std::size_t line_count = 0;
    add_lines([&](auto const& line) {
        wanted.resize(line.size());
        std::ranges::transform(wanted, line, wanted.begin(), [](auto width, auto const& cell) {
            return std::max(width, cell.text.size());
        });
        ++line_count;
    });
    auto const widths = fitted(wanted, screen.width, last_column);
    bool const wraps =
        last_column != LastColumn::Shortened && !widths.empty() && widths.back() < wanted.back();
    std::string text;
    text.reserve(line_count * (whole(widths) + gap));
    bool heading = last_column == LastColumn::WrappedUnderHeading;
    add_lines([&](auto const& line) {
        std::size_t column = 0;
        std::size_t place = 0; // of the column
        for (auto const& [content, colour] : line) {
            bool const last = column + 1 == line.size();
            bool const with_colour = screen.coloured && !colour.empty();
            auto const width = widths[column];
            bool const below = last && wraps && width == 0;
            if (last && wraps && (content.empty() || (below && heading))) {
                continue;
            }
            constexpr std::size_t indent = 4;
            if (below) {
                text.erase(text.find_last_not_of(' ') + 1);
                text += "\n" + std::string(indent, ' ');
            } else {
                text.append(column == 0 ? 0 : gap, ' ');
            }
            text += with_colour ? colour : "";
            text += last && wraps ? wrapped(content, below ? indent : place, screen.width)
                                  : shortened(content, width);
            text.append(last ? 0 : width - std::min(width, content.size()), ' ');
            text += with_colour ? colour::plain : "";
            place += width + gap;
            ++column;
        }
        text.erase(text.find_last_not_of(' ') + 1);
        text += '\n';
        heading = false;
    });
    return text;
}

} // namespace xpon::logctl
