#include <algorithm>
#include <map>
#include <memory>
#include <set>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands/command.hpp"
#include "core/failure.hpp"
#include "output.hpp"
#include "stored.hpp"
#include "table.hpp"
#include "wanted.hpp"
#include "xpon/cfgdb/module_table.hpp"
#include "xpon/cfgdb/nearest.hpp"
#include "xpon/cfgdb/printable.hpp"

namespace xpon::logctl {

namespace {

using nlohmann::ordered_json;

struct Options {
    std::string name;
    bool json = false;
};

/// How many of something have each level, the most severe first.
using Counts = std::map<std::int64_t, std::size_t>;

std::string level_name(std::int64_t level) {
    return cfgdb::to_text(cfgdb::Kind::Level, level);
}

/// A value that is not allowed counts as none.
void count(cfgdb::Setting const& setting, StoredValues const& stored, Counts& counts) {
    if (auto const level = cfgdb::parse(setting, value_of(setting, stored)); level.has_value()) {
        ++counts[std::get<std::int64_t>(level.value())];
    }
}

std::string counts_text(Counts const& counts) {
    std::string text;
    for (auto const& [level, how_many] : counts) {
        text += fmt::format("{}{} {}", text.empty() ? "" : ", ", how_many, level_name(level));
    }
    return text;
}

/// The levels of the FSM that are not of its subjects.
std::map<std::string_view, Counts> other_levels(cfgdb::Module const& module, StoredValues const& stored) {
    std::map<std::string_view, Counts> others;
    auto const begin = fmt::format("module.{}.", module.name);
    if (cfgdb::find_setting(begin + "olt") == nullptr) {
        return others;
    }
    for (auto const& [name, pattern] : {std::pair{"olt", "olt"}, {"ports", "port.*"}, {"onts", "ont.*"}}) {
        auto const found = cfgdb::expand(begin + pattern);
        for (auto const* setting : found.value()) {
            count(*setting, stored, others[name]);
        }
    }
    return others;
}

/// A module as it is now.
struct Row {
    cfgdb::Module const* module;
    std::vector<std::string_view> files;
    std::vector<std::string> levels;           // one per subject
    std::map<std::string_view, Counts> others; // of the FSM: its OLT, ports and ONTs
};

core::Result<std::vector<cfgdb::Module const*>> chosen_modules(std::string const& name) {
    std::vector<cfgdb::Module const*> found;
    std::vector<std::string> names;
    for (auto const& module : cfgdb::modules()) {
        names.emplace_back(module.name);
        if (name.empty() || name == module.name || name == module.stem ||
            name == std::to_string(std::int64_t{module.value})) {
            found.push_back(&module);
        }
    }
    if (found.empty()) {
        auto const near = cfgdb::nearest(name, names);
        return core::fail(core::Error::InvalidInputArg, "{}: no such module; {}", cfgdb::printable(name),
                          near.empty() ? "logctl modules lists them" : cfgdb::did_you_mean(near));
    }
    return found;
}

core::Result<std::vector<Row>> rows_of(std::vector<cfgdb::Module const*> const& modules,
                                       Context const& context) {
    OUTCOME_TRY(wanted, Wanted::open(context));
    OUTCOME_TRY(stored, stored_values(context.database));
    std::vector<Row> rows;
    for (auto const* module : modules) {
        OUTCOME_TRY(files, wanted.files_with(module->value));
        Row row{module, {}, {}, other_levels(*module, stored)};
        std::ranges::transform(files, std::back_inserter(row.files), &log_config::Output::name);
        for (auto const subject : module->subjects) {
            auto const* const setting =
                cfgdb::find_setting(fmt::format("module.{}.{}", module->name, subject));
            row.levels.push_back(value_of(*setting, stored));
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

/// The most severe first; what is no level last.
std::vector<std::string> distinct_levels(Row const& row) {
    std::set<std::string> known{row.levels.begin(), row.levels.end()};
    for (auto const& [_, counts] : row.others) {
        for (auto const& [level, how_many] : counts) {
            known.insert(level_name(level));
        }
    }
    std::vector<std::string> sorted;
    for (std::int64_t level = 0; cfgdb::is_allowed(cfgdb::Kind::Level, level); ++level) {
        if (known.erase(level_name(level)) > 0) {
            sorted.push_back(level_name(level));
        }
    }
    sorted.insert(sorted.end(), known.begin(), known.end());
    return sorted;
}

std::string list_table(std::vector<Row> const& rows) {
    auto const add_rows = [&](AddLine const& add) {
        add({"VALUE", "NAME", "STEM", "FILES", "LEVELS", "SUBJECTS"});
        for (auto const& row : rows) {
            auto const& [module, files, levels, others] = row;
            auto const different = distinct_levels(row);
            add({std::to_string(std::int64_t{module->value}), module->name, module->stem,
                 fmt::format("{}", fmt::join(files, " ")), fmt::format("{}", fmt::join(different, " ")),
                 fmt::format("{}", fmt::join(module->subjects, " "))});
        }
    };
    return aligned(add_rows, screen());
}

std::string detail(Row const& row) {
    auto const& module = *row.module;
    auto const add_facts = [&](AddLine const& add) {
        add({"name", module.name});
        add({"value", std::to_string(std::int64_t{module.value})});
        add({"stem", module.stem});
        add({"files", fmt::format("{}", fmt::join(row.files, " "))});
        add({"levels", module.built_in() ? "built in" : fmt::format("module.{}.*", module.name)});
    };
    auto const add_subjects = [&](AddLine const& add) {
        add({"SUBJECT", "LEVEL"});
        for (std::size_t i = 0; i < row.levels.size(); ++i) {
            add({module.subjects[i], row.levels[i]});
        }
        for (auto const& [name, counts] : row.others) {
            add({name, counts_text(counts)});
        }
    };
    return aligned(add_facts, screen(), LastColumn::Wrapped) + "\n" +
           aligned(add_subjects, screen(), LastColumn::WrappedUnderHeading);
}

ordered_json object_of(Row const& row) {
    auto const& [module, files, levels, others] = row;
    auto subjects = ordered_json::object();
    for (std::size_t i = 0; i < levels.size(); ++i) {
        subjects[std::string{module->subjects[i]}] = levels[i];
    }
    ordered_json object{{"name", module->name},           {"value", std::int64_t{module->value}},
                        {"stem", module->stem},           {"files", files},
                        {"built_in", module->built_in()}, {"subjects", subjects}};
    for (auto const& [name, counts] : others) {
        for (auto const& [level, how_many] : counts) {
            object[std::string{name}][level_name(level)] = how_many;
        }
    }
    return object;
}

core::Result<int> modules(Context const& context, Options const& options) {
    OUTCOME_TRY(chosen, chosen_modules(options.name));
    OUTCOME_TRY(rows, rows_of(chosen, context));
    if (options.json) {
        auto all = ordered_json::array();
        std::ranges::transform(rows, std::back_inserter(all), object_of);
        print(all.dump(2) + "\n");
    } else {
        print(options.name.empty() ? list_table(rows) : detail(rows.front()));
    }
    return 0;
}

} // namespace

Action modules_command(Arguments& arguments) {
    auto const options = std::make_shared<Options>();
    arguments.add({"NAME", "A module's name, stem or value; all modules if none is given"}, options->name);
    arguments.add({"--json", "Print an array of JSON objects"}, options->json);
    return [options](Context const& context) { return modules(context, *options); };
}

} // namespace xpon::logctl
