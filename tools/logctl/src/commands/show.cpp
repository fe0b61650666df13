#include <algorithm>
#include <map>
#include <memory>
#include <string_view>

#include <fmt/format.h>

#include "commands/command.hpp"
#include "folded.hpp"
#include "ont_map.hpp"
#include "output.hpp"
#include "setting_table.hpp"
#include "stored.hpp"
#include "wrapped.hpp"

namespace xpon::logctl {

namespace {

struct Options {
    std::vector<std::string> patterns;
    bool changed = false;
    bool json = false;
    bool commands = false;
    bool map = false;
};

using cfgdb::Setting;

constexpr std::string_view ont_prefix = "module.fsm_pon.ont.";

/// There are 4096 levels of ONTs: unless a pattern speaks of ONTs, only those that differ are worth a line.
bool speaks_of_onts(std::string_view pattern) {
    return pattern.find(".ont.") != std::string_view::npos || pattern.ends_with(".ont");
}

using Settings = std::vector<Setting const*>;

struct Selection {
    Settings settings;      ///< in the order of the table of all
    Settings wanted_anyway; ///< also at the default; sorted
};

void sort_out(Settings& settings) {
    std::ranges::sort(settings);
    auto const twice = std::ranges::unique(settings);
    settings.erase(twice.begin(), twice.end());
}

core::Result<Selection> select(std::vector<std::string> const& patterns) {
    Selection selection;
    for (auto const& pattern : patterns) {
        OUTCOME_TRY(found, expand_group(pattern));
        selection.settings.insert(selection.settings.end(), found.begin(), found.end());
        if (speaks_of_onts(pattern)) {
            selection.wanted_anyway.insert(selection.wanted_anyway.end(), found.begin(), found.end());
        }
    }
    sort_out(selection.settings);
    sort_out(selection.wanted_anyway);
    return selection;
}

/// A script that makes this configuration again: all at once, since two receivers may not be the same even
/// for a moment.
std::string to_commands(std::vector<SettingRow> const& rows, bool whole) {
    std::vector<Said> all;
    for (auto const& row : rows) {
        if (row.source == Source::Database && row.allowed) {
            all.push_back({row.setting->path, row.value});
        }
    }
    std::string text = whole ? "logctl reset '*'\n" : "";
    text += all.empty() ? "" : "logctl set";
    for (auto const& [path, value] : folded(all)) {
        auto const* const quote = path.find('*') == std::string::npos ? "" : "'";
        text += fmt::format(" \\\n    {0}{1}={2}{0}", quote, path, value);
    }
    return text + (all.empty() ? "" : "\n");
}

core::Result<int> show(Context const& context, Options const& options) {
    OUTCOME_TRY(selection,
                select(options.patterns.empty() ? std::vector<std::string>{"*"} : options.patterns));
    OUTCOME_TRY(stored, stored_values(context.database));
    if (options.map) {
        print(ont_map(stored, terminal_width(), screen().coloured));
        return 0;
    }
    OUTCOME_TRY(trials, cfgdb::pending_trials(context.database));
    std::map<std::string_view, cfgdb::Trial const*> on_trial;
    for (auto const& trial : trials) {
        for (auto const& setting : trial.settings) {
            on_trial.emplace(setting.path, &trial);
        }
    }
    std::vector<SettingRow> rows;
    rows.reserve(selection.settings.size());
    std::size_t left_out = 0;
    for (auto const* setting : selection.settings) {
        auto const trial = on_trial.find(setting->path);
        if (auto const* const found = stored.find(*setting)) {
            rows.push_back({setting, found->value, Source::Database, found->allowed});
        } else if (trial == on_trial.end() && setting->path.starts_with(ont_prefix) &&
                   !std::ranges::binary_search(selection.wanted_anyway, setting)) {
            ++left_out;
            continue;
        } else if (options.changed || options.commands) {
            continue;
        } else {
            rows.push_back({setting, cfgdb::to_text(setting->kind, setting->default_value),
                            setting->built_in() ? Source::BuiltIn : Source::Default});
        }
        rows.back().trial = trial == on_trial.end() ? nullptr : trial->second;
    }
    print(options.json       ? to_json(rows)
          : options.commands ? to_commands(rows, options.patterns.empty())
                             : to_table(rows, screen()));
    if (left_out > 0 && !options.json && !options.changed && !options.commands) {
        auto const note = fmt::format(
            "{} ONT levels are at the default; see them with: logctl show module.fsm_pon.ont", left_out);
        print(wrapped(note, 0, screen().width) + "\n");
    }
    return 0;
}

} // namespace

Action show_command(Arguments& arguments) {
    auto const options = std::make_shared<Options>();
    arguments.add({"PATH",
                   "Settings or groups, such as syslog.file.level, syslog.remote, module.*.SELF or "
                   "module.fsm_pon.ont.3.1-16; everything if none is given. ONT levels at the default "
                   "are left out unless the path names ont"},
                  options->patterns);
    arguments.add({"--changed", "Only what differs from its default"}, options->changed);
    arguments.add({"--json", "Print an array of JSON objects"}, options->json);
    arguments.add({"--commands", "Print what differs as commands that recreate it"}, options->commands);
    arguments.add({"--map", "Print the levels of all ONTs as a picture"}, options->map);
    arguments.verify([options] {
        return options->json + options->commands + options->map > 1
                   ? "--json, --commands and --map exclude each other"
               : options->map && !options->patterns.empty() ? "--map shows all ONTs and takes no PATH"
                                                            : "";
    });
    return [options](Context const& context) { return show(context, *options); };
}

} // namespace xpon::logctl
