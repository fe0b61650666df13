#include "xpon/cfgdb/nearest.hpp"

#include <algorithm>
#include <numeric>
#include <utility>

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
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < from.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t k = 0; k < to.size(); ++k) {
            std::size_t const changed = diagonal + (lower(from[i]) == lower(to[k]) ? 0 : 1);
            diagonal = row[k + 1];
            row[k + 1] = std::min({changed, diagonal + 1, row[k] + 1});
        }
    }
    return row.back();
}

std::vector<std::string> nearest(std::string_view text, std::vector<std::string> const& names) {
    constexpr std::size_t longest = 200; // the search grows with it
    std::vector<std::string> found;
    std::size_t best = std::max<std::size_t>(3, text.size() / 4);
    for (auto const& name : names) {
        auto const away = text.size() > longest ? longest : distance(text, name);
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

} // namespace xpon::cfgdb
