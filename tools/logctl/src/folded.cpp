#include "folded.hpp"

#include <algorithm>
#include <iterator>
#include <map>

#include <fmt/format.h>

#include "wrapped.hpp"
#include "xpon/cfgdb/settings.hpp"

namespace xpon::logctl {

namespace {

using Components = std::vector<std::string>;

Components split(std::string const& path) {
    Components components;
    for (std::size_t begin = 0, end = 0; end != std::string::npos; begin = end + 1) {
        end = path.find('.', begin);
        components.push_back(path.substr(begin, end - begin));
    }
    return components;
}

bool is_number(std::string const& component) {
    constexpr std::size_t most_digits = 9; // nobody knows what a database holds
    return !component.empty() && component.size() <= most_digits &&
           component.find_first_not_of("0123456789") == std::string::npos;
}

struct Row {
    Components path;
    std::string text;
};

/// "1-3,5" for 5, 1, 3, 2.
std::string ranges(std::vector<unsigned long> numbers) {
    std::ranges::sort(numbers);
    std::string text;
    for (auto first = numbers.begin(); first != numbers.end();) {
        auto const last = std::ranges::adjacent_find(first, numbers.end(),
                                                     [](auto one, auto next) { return next != one + 1; });
        auto const end = last == numbers.end() ? last : last + 1;
        text += text.empty() ? "" : ",";
        text += *first == *(end - 1) ? std::to_string(*first) : fmt::format("{}-{}", *first, *(end - 1));
        first = end;
    }
    return text;
}

/// Joins the rows that differ in this component alone, where it is a number in each.
std::vector<Row> join_numbers(std::vector<Row> const& rows, std::size_t component) {
    std::vector<Row> joined;
    std::map<std::pair<Components, std::string>, std::size_t> places; // in `joined`
    std::vector<std::vector<unsigned long>> numbers;                  // of each of them
    for (auto const& row : rows) {
        bool const number = component < row.path.size() && is_number(row.path[component]);
        std::pair key{row.path, row.text};
        if (number) {
            key.first[component] = "*";
        }
        auto const [place, is_new] = places.try_emplace(std::move(key), joined.size());
        if (is_new) {
            joined.push_back(row);
            numbers.emplace_back();
        }
        if (number) {
            numbers[place->second].push_back(std::stoul(row.path[component]));
        }
    }
    for (std::size_t i = 0; i < joined.size(); ++i) {
        if (!numbers[i].empty()) {
            joined[i].path[component] = ranges(numbers[i]);
        }
    }
    return joined;
}

} // namespace

std::vector<Said> folded(std::vector<Said> const& all) {
    std::vector<Said> rows;
    std::map<std::pair<std::string, std::string>, std::vector<std::size_t>>
        groups; // what is said, below what
    for (auto const& [path, text] : all) {
        groups[{path.substr(0, path.rfind('.')), text}].push_back(rows.size());
        rows.push_back({path, text});
    }
    for (auto const& [key, places] : groups) {
        auto const whole = key.first + ".*";
        auto const below = cfgdb::expand(whole);
        if (places.size() > 1 && below.has_value() && below.value().size() == places.size() &&
            !is_number(rows[places.front()].path.substr(key.first.size() + 1))) {
            rows[places.front()].path = whole;
            std::ranges::for_each(places.begin() + 1, places.end(), [&](auto i) { rows[i].path.clear(); });
        }
    }
    std::vector<Row> parts;
    std::size_t longest = 0;
    for (auto const& [path, text] : rows) {
        if (!path.empty()) {
            parts.push_back({split(path), text});
            longest = std::max(longest, parts.back().path.size());
        }
    }
    for (auto component = longest; component-- > 0;) {
        parts = join_numbers(parts, component);
    }
    std::vector<Said> result;
    result.reserve(parts.size());
    for (auto const& [path, text] : parts) {
        result.push_back({fmt::format("{}", fmt::join(path, ".")), text});
    }
    return result;
}

std::string change_text(std::string const& old_value, std::string const& new_value) {
    return old_value == new_value ? fmt::format("{} (no longer on trial)", new_value)
                                  : fmt::format("{} -> {}", old_value, new_value);
}

std::string folded_lines(std::vector<cfgdb::Change> const& changes, std::size_t width) {
    std::vector<Said> all;
    all.reserve(changes.size());
    for (auto const& [setting, old_value, new_value] : changes) {
        all.push_back({setting->path, change_text(old_value, new_value)});
    }
    std::string text;
    for (auto const& [path, change] : folded(all)) {
        text += wrapped(fmt::format("{}: {}", path, change), 4, width) + "\n";
    }
    return text;
}

} // namespace xpon::logctl
