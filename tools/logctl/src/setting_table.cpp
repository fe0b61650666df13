#include "setting_table.hpp"

#include <string_view>
#include <variant>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "table.hpp"
#include "trials/duration.hpp"

namespace xpon::logctl {

namespace {

using cfgdb::Kind;

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

/// Numbers as numbers, so that a program need not take the text apart. Levels have names.
nlohmann::ordered_json json_value(cfgdb::Setting const& setting, std::string const& text) {
    bool const number =
        setting.kind != Kind::Level && std::holds_alternative<std::int64_t>(setting.default_value);
    return number ? nlohmann::ordered_json::parse(text) : nlohmann::ordered_json(text);
}

} // namespace

std::string to_table(std::vector<SettingRow> const& rows, Screen const& screen) {
    auto const add_rows = [&](AddLine const& add) {
        add({"PATH", {"VALUE", colour::bold}, "DEFAULT", "STORED"});
        for (auto const& row : rows) {
            auto const value = row.allowed ? row.value : row.value + " (not allowed)";
            auto const where = row.trial == nullptr ? std::string{name_of(row.source)}
                                                    : fmt::format("trial {}, {} left", row.trial->number,
                                                                  duration_text(row.trial->terms.end.left()));
            auto const changed = row.source == Source::Database ? colour::yellow : std::string_view{};
            add({row.setting->path, {value, row.allowed ? changed : colour::red}, default_of(row), where});
        }
    };
    return aligned(add_rows, screen);
}

std::string to_json(std::vector<SettingRow> const& rows) {
    auto all = nlohmann::ordered_json::array();
    for (auto const& row : rows) {
        all.push_back(
            {{"path", row.setting->path},
             {"value", row.allowed ? json_value(*row.setting, row.value) : nlohmann::ordered_json(row.value)},
             {"default", json_value(*row.setting, default_of(row))},
             {"stored", name_of(row.source)},
             {"allowed", row.allowed}});
        if (row.trial != nullptr) {
            all.back()["trial"] = {{"number", row.trial->number},
                                   {"seconds_left", row.trial->terms.end.left()}};
        }
    }
    return all.dump(2) + "\n";
}

} // namespace xpon::logctl
