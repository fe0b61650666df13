#include <memory>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands/command.hpp"
#include "core/failure.hpp"
#include "folded.hpp"
#include "number_in.hpp"
#include "output.hpp"
#include "past.hpp"
#include "settings_file.hpp"
#include "stored.hpp"

namespace xpon::logctl {

namespace {

struct Options {
    std::string with;
    bool json = false;
};

/// Values as an operator writes them, of the settings that are not at the default.
using Values = std::map<cfgdb::Setting const*, std::string>;

core::Result<Values> values_now(Context const& context) {
    OUTCOME_TRY(stored, stored_values(context.database));
    Values values;
    for (auto const& row : stored.rows()) {
        if (row.setting != nullptr) {
            values[row.setting] = row.value;
        }
    }
    return values;
}

core::Result<Values> values_after(std::int64_t number, Values now, Context const& context) {
    OUTCOME_TRY(history, cfgdb::history(context.database));
    OUTCOME_TRY(changed, changed_since(number, history));
    for (auto const& [path, since] : changed) {
        if (auto const* const setting = cfgdb::find_setting(path)) {
            now[setting] = since.then;
        }
    }
    return now;
}

core::Result<Values> values_in(std::string const& file) {
    OUTCOME_TRY(assignments, read_settings_file(file));
    Values values;
    for (auto const& [path, text] : assignments) {
        OUTCOME_TRY(settings, cfgdb::expand(path));
        for (auto const* setting : settings) {
            OUTCOME_TRY(value, cfgdb::parse(*setting, text));
            values[setting] = cfgdb::to_text(setting->kind, value);
        }
    }
    return values;
}

std::vector<cfgdb::Change> differences(Values const& then, Values const& now) {
    auto const value_in = [](Values const& values, cfgdb::Setting const& setting) {
        auto const found = values.find(&setting);
        return found != values.end() ? found->second : cfgdb::to_text(setting.kind, setting.default_value);
    };
    std::vector<cfgdb::Change> changes;
    for (auto const& setting : cfgdb::settings()) {
        if (auto old_value = value_in(then, setting), new_value = value_in(now, setting);
            old_value != new_value) {
            changes.push_back({&setting, std::move(old_value), std::move(new_value)});
        }
    }
    return changes;
}

std::string to_json(std::vector<cfgdb::Change> const& changes) {
    auto all = nlohmann::ordered_json::array();
    for (auto const& [setting, old_value, new_value] : changes) {
        all.push_back({{"path", setting->path}, {"then", old_value}, {"now", new_value}});
    }
    return all.dump(2) + "\n";
}

core::Result<int> compare(Context const& context, Options const& options) {
    OUTCOME_TRY(now, values_now(context));
    Values then;
    if (auto const number = number_in<std::int64_t>(options.with)) {
        OUTCOME_TRY(after, values_after(*number, now, context));
        then = std::move(after);
    } else if (!options.with.empty()) {
        OUTCOME_TRY(in_file, values_in(options.with));
        then = std::move(in_file);
    }
    auto const changes = differences(then, now);
    print(options.json ? to_json(changes) : folded_lines(changes, screen().width));
    return 0;
}

} // namespace

Action compare_command(Arguments& arguments) {
    auto const options = std::make_shared<Options>();
    arguments.add({"WITH",
                   "The number of a transaction, for the settings after it, or a file from export; the "
                   "defaults if none is given"},
                  options->with);
    arguments.add({"--json", "Print an array of JSON objects"}, options->json);
    return [options](Context const& context) { return compare(context, *options); };
}

} // namespace xpon::logctl
