#include "setting_table.hpp"

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace xpon::logctl {

namespace {

using cfgdb::Kind;

constexpr std::string_view bold = "\x1b[1m";
constexpr std::string_view yellow = "\x1b[33m";
constexpr std::string_view red = "\x1b[31m";
constexpr std::string_view plain = "\x1b[0m";

std::string_view name_of(Source source) {
    switch (source) {
    case Source::Default:
        return "default";
    case Source::Database:
        return "database";
    case Source::BuiltIn:
        return "built-in";
    }
    return "";
}

std::string default_of(SettingRow const& row) {
    return cfgdb::to_text(row.setting->kind, row.setting->default_value);
}

/// The cells of a line, and how the line's value is coloured.
struct Line {
    std::array<std::string, 4> cells;
    std::string_view colour;
};

Line line_of(SettingRow const& row) {
    auto const value = row.allowed ? row.value : row.value + " (not allowed)";
    auto const changed = row.source == Source::Database ? yellow : std::string_view{};
    return {{row.setting->path, value, default_of(row), std::string{name_of(row.source)}},
            row.allowed ? changed : red};
}

/// Numbers as numbers, so that a program need not take the text apart.
nlohmann::ordered_json json_value(Kind kind, std::string const& text) {
    bool const number = kind == Kind::Size || kind == Kind::Port;
    return number ? nlohmann::ordered_json::parse(text) : nlohmann::ordered_json(text);
}

} // namespace

std::string to_table(std::vector<SettingRow> const& rows, bool colour) {
    std::vector<Line> lines{{{"PATH", "VALUE", "DEFAULT", "STORED"}, bold}};
    std::ranges::transform(rows, std::back_inserter(lines), line_of);
    std::array<std::size_t, 3> widths{};
    for (auto const& line : lines) {
        for (std::size_t i = 0; i < widths.size(); ++i) {
            widths.at(i) = std::max(widths.at(i), line.cells.at(i).size());
        }
    }
    std::string text;
    for (auto const& line : lines) {
        auto const& [path, value, default_value, source] = line.cells;
        bool const coloured = colour && !line.colour.empty();
        fmt::format_to(std::back_inserter(text), "{:{}}  {}{:{}}{}  {:{}}  {}\n", path, widths[0],
                       coloured ? line.colour : "", value, widths[1], coloured ? plain : "", default_value,
                       widths[2], source);
    }
    return text;
}

std::string to_json(std::vector<SettingRow> const& rows) {
    auto all = nlohmann::ordered_json::array();
    for (auto const& row : rows) {
        auto const kind = row.setting->kind;
        all.push_back(
            {{"path", row.setting->path},
             {"value", row.allowed ? json_value(kind, row.value) : nlohmann::ordered_json(row.value)},
             {"default", json_value(kind, default_of(row))},
             {"stored", name_of(row.source)},
             {"allowed", row.allowed}});
    }
    return all.dump(2) + "\n";
}

} // namespace xpon::logctl
