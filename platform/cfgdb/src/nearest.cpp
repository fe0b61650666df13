#include "xpon/cfgdb/nearest.hpp"

#include <algorithm>
#include <array>
#include <numeric>

#include <fmt/format.h>

#include "xpon/cfgdb/printable.hpp"

namespace xpon::cfgdb {

namespace {

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

} // namespace

std::size_t distance(std::string_view from, std::string_view to) {
    if (!from.empty() && from.size() < to.size() && to.starts_with(from)) {
        return 1;
    }
    auto const same = [&](std::size_t i, std::size_t k) { return lower(from[i]) == lower(to[k]); };
    // row[k] is the distance from the letters of `from` so far to the first k letters of `to`.
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    std::vector<std::size_t> above(row.size());
    std::vector<std::size_t> two_above(row.size());
    for (std::size_t i = 0; i < from.size(); ++i) {
        two_above.swap(above);
        above.swap(row);
        row[0] = i + 1;
        for (std::size_t k = 0; k < to.size(); ++k) {
            row[k + 1] = std::min({above[k] + (same(i, k) ? 0 : 1), above[k + 1] + 1, row[k] + 1});
            if (i > 0 && k > 0 && same(i, k - 1) && same(i - 1, k)) {
                row[k + 1] = std::min(row[k + 1], two_above[k - 1] + 1);
            }
        }
    }
    return row.back();
}

std::vector<std::string> nearest(std::string_view text, std::vector<std::string> const& names) {
    constexpr std::size_t longest = 200; // the search grows with it
    std::vector<std::string> found;
    if (text.size() > longest) {
        return found;
    }
    std::size_t best = std::max<std::size_t>(1, text.size() / 3);
    for (auto const& name : names) {
        auto const away = distance(text, name);
        if (away >= std::max(text.size(), name.size())) {
            continue; // not a letter in common
        }
        if (away < best) {
            found.clear();
            best = away;
        }
        if (away == best && found.size() < 3) {
            found.push_back(name);
        }
    }
    return found;
}

std::string did_you_mean(std::vector<std::string> const& near) {
    std::string text;
    for (std::size_t i = 0; i < near.size(); ++i) {
        text += i == 0 ? "did you mean " : i + 1 == near.size() ? " or " : ", ";
        text += printable(near[i]);
    }
    return near.empty() ? "" : text + "?";
}

} // namespace xpon::cfgdb
