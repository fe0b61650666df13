#include <algorithm>
#include <limits>
#include <optional>

#include <fmt/format.h>

#include "core/failure.hpp"
#include "number_in.hpp"
#include "xpon/cfgdb/nearest.hpp"
#include "xpon/cfgdb/printable.hpp"
#include "xpon/cfgdb/settings.hpp"

namespace xpon::cfgdb {

namespace {

using core::Error;
using core::fail;

// A list of every other ONT fits.
constexpr std::size_t longest_pattern = 1000;
// Nobody mistypes longer ones, and the cost of the search for the nearest grows with the length.
constexpr std::size_t longest_to_search = 200;

using Parts = std::vector<std::string_view>;

void split(std::string_view path, Parts& parts) {
    parts.clear();
    for (std::size_t begin = 0; begin <= path.size();) {
        auto const end = std::min(path.find('.', begin), path.size());
        parts.push_back(path.substr(begin, end - begin));
        begin = end + 1;
    }
}

Parts split(std::string_view path) {
    Parts parts;
    split(path, parts);
    return parts;
}

/// A number as it stands in paths: digits without leading zeros.
std::optional<unsigned> path_number(std::string_view text) {
    bool const canonical = text.size() == 1 || !text.starts_with('0');
    return canonical ? number_in<unsigned>(text) : std::nullopt;
}

struct Numbers {
    unsigned low;
    unsigned high;
};

/// "7", "3-16" or a list of such, as in "1-16,18"; empty for anything else.
std::vector<Numbers> numbers_in(std::string_view text) {
    std::vector<Numbers> all;
    for (std::size_t begin = 0, end = 0; end != std::string_view::npos; begin = end + 1) {
        end = text.find(',', begin);
        auto const part = text.substr(begin, end - begin);
        auto const dash = part.find('-');
        auto const low = path_number(part.substr(0, dash));
        auto const high = dash == std::string_view::npos ? low : path_number(part.substr(dash + 1));
        if (!low || !high) {
            return {};
        }
        all.push_back({*low, *high});
    }
    return all;
}

/// One component of a pattern: `*`, numbers, or the name that `text` is.
struct Component {
    std::string_view text;
    bool any;
    std::vector<Numbers> numbers;

    explicit Component(std::string_view component)
      : text{component}
      , any{component == "*"}
      , numbers{numbers_in(component)} {}

    /// Whether a path's component can match. The bounds of numbers are checked later.
    bool accepts(std::string_view part) const {
        return any || (numbers.empty() ? part == text : path_number(part).has_value());
    }
};

using Pattern = std::vector<Component>;

Pattern pattern_of(std::string_view text) {
    Pattern pattern;
    for (auto const part : split(text)) {
        pattern.emplace_back(part);
    }
    return pattern;
}

bool accepts(Pattern const& pattern, Parts const& parts) {
    bool const length_fits =
        pattern.back().any ? parts.size() >= pattern.size() : parts.size() == pattern.size();
    return length_fits &&
           std::equal(pattern.begin(), pattern.end(), parts.begin(),
                      [](auto const& component, auto part) { return component.accepts(part); });
}

std::vector<Setting const*> candidates_for(Pattern const& pattern) {
    std::vector<Setting const*> candidates;
    Parts parts;
    for (auto const& setting : settings()) {
        split(setting.path, parts);
        if (accepts(pattern, parts)) {
            candidates.push_back(&setting);
        }
    }
    return candidates;
}

/// The component at `index`, which is a number.
unsigned number_at(Setting const& setting, std::size_t index) {
    return path_number(split(setting.path).at(index)).value_or(0);
}

/// The range of the candidates' components at `index`, which are all numbers.
Numbers existing_numbers(std::vector<Setting const*> const& candidates, std::size_t index) {
    Numbers existing{std::numeric_limits<unsigned>::max(), 0};
    for (auto const* candidate : candidates) {
        auto const number = number_at(*candidate, index);
        existing.low = std::min(existing.low, number);
        existing.high = std::max(existing.high, number);
    }
    return existing;
}

struct Neighbour {
    std::size_t distance;
    std::string path;
};

/// The pattern changed as little as possible to match a path; components that match stay as written.
Neighbour fitted(Pattern const& pattern, Parts const& parts) {
    Neighbour fit{0, {}};
    auto const length = pattern.back().any ? pattern.size() : std::max(pattern.size(), parts.size());
    for (std::size_t i = 0; i < length; ++i) {
        if (i >= parts.size()) {
            fit.distance += pattern[i].text.size() + 1;
        } else if (i >= pattern.size()) {
            fit.distance += parts[i].size() + 1;
            fit.path += fmt::format(".{}", parts[i]);
        } else {
            bool const fits = pattern[i].accepts(parts[i]);
            fit.distance += fits ? 0 : distance(pattern[i].text, parts[i]);
            fit.path += fmt::format("{}{}", i == 0 ? "" : ".", fits ? pattern[i].text : parts[i]);
        }
    }
    return fit;
}

/// Up to three of the nearest names of settings or groups; empty if none is near.
std::vector<std::string> nearest_paths(std::string_view text) {
    // Without its first component a text must be nearer: a short one is not far from many names.
    auto const nearly = text.size() / 4;
    auto const near = std::max<std::size_t>(3, nearly);
    std::pair<std::string, std::size_t> const meant[] = {
        {std::string{text}, near},
        {fmt::format("{}.*", text), near},
        {fmt::format("syslog.{}", text), nearly},
        {fmt::format("syslog.{}.*", text), nearly},
        {fmt::format("module.{}", text), nearly},
        {fmt::format("module.{}.*", text), nearly},
    };
    std::vector<std::pair<Pattern, std::size_t>> patterns;
    for (auto const& [pattern, farthest] : meant) {
        patterns.emplace_back(pattern_of(pattern), farthest);
    }
    std::vector<std::string> found;
    auto best = near;
    for (auto const& setting : settings()) {
        auto const parts = split(setting.path);
        for (auto const& [pattern, farthest] : patterns) {
            auto const fit = fitted(pattern, parts);
            if (fit.distance > std::min(best, farthest)) {
                continue;
            }
            if (fit.distance < best) {
                found.clear();
                best = fit.distance;
            }
            if (found.size() < 3 && std::ranges::find(found, fit.path) == found.end()) {
                found.push_back(fit.path);
            }
        }
    }
    return found;
}

core::ErrorPayload unknown(std::string_view text) {
    auto const near = text.size() > longest_to_search ? std::vector<std::string>{} : nearest_paths(text);
    return fail(Error::InvalidInputArg, "{}: no such setting; {}", printable(text),
                near.empty() ? "all begin with \"syslog.\" or \"module.\"" : did_you_mean(near));
}

} // namespace

core::Result<std::vector<Setting const*>> expand(std::string_view pattern) {
    if (auto const* const exact = find_setting(pattern)) {
        return std::vector{exact};
    }
    if (pattern.size() > longest_pattern) {
        return unknown(pattern);
    }
    auto const components = pattern_of(pattern);
    auto candidates = candidates_for(components);
    if (candidates.empty()) {
        return unknown(pattern);
    }
    for (std::size_t i = 0; i < components.size(); ++i) {
        auto const& wanted = components[i].numbers;
        if (wanted.empty()) {
            continue;
        }
        auto const existing = existing_numbers(candidates, i);
        auto const reversed =
            std::ranges::find_if(wanted, [](auto const& part) { return part.low > part.high; });
        if (reversed != wanted.end()) {
            return fail(Error::InvalidInputArg, "{}: {}-{} does not begin with its lower number",
                        printable(pattern), reversed->low, reversed->high);
        }
        if (std::ranges::any_of(wanted, [&](auto const& part) {
                return part.low < existing.low || part.high > existing.high;
            })) {
            return fail(Error::InvalidInputArg, "{}: {} is not within {}-{}", printable(pattern),
                        components[i].text, existing.low, existing.high);
        }
        std::erase_if(candidates, [&](Setting const* candidate) {
            auto const number = number_at(*candidate, i);
            return std::ranges::none_of(
                wanted, [=](Numbers const& part) { return number >= part.low && number <= part.high; });
        });
    }
    return candidates;
}

} // namespace xpon::cfgdb
