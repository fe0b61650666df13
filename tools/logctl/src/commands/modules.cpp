#include <algorithm>
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

/// A module as it is now.
struct Row {
    cfgdb::Module const* module;
    std::vector<std::string_view> files;
    std::vector<std::string> levels; // one per subject
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
                          near.empty() ? "logctl modules lists them"
                                       : fmt::format("nearest: {}", fmt::join(near, ", ")));
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
        Row row{module, {}, {}};
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

std::string list_table(std::vector<Row> const& rows) {
    auto const add_rows = [&](AddLine const& add) {
        add({"VALUE", "NAME", "STEM", "FILES", "LEVELS", "SUBJECTS"});
        for (auto const& [module, files, levels] : rows) {
            std::set<std::string> const different{levels.begin(), levels.end()};
            add({std::to_string(std::int64_t{module->value}), module->name, module->stem,
                 fmt::format("{}", fmt::join(files, " ")), fmt::format("{}", fmt::join(different, " ")),
                 fmt::format("{}", fmt::join(module->subjects, " "))});
        }
    };
    return aligned(add_rows, false);
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
    };
    return aligned(add_facts, false) + "\n" + aligned(add_subjects, false);
}

ordered_json object_of(Row const& row) {
    auto const& [module, files, levels] = row;
    auto subjects = ordered_json::object();
    for (std::size_t i = 0; i < levels.size(); ++i) {
        subjects[std::string{module->subjects[i]}] = levels[i];
    }
    return {{"name", module->name}, {"value", std::int64_t{module->value}}, {"stem", module->stem},
            {"files", files},       {"built_in", module->built_in()},       {"subjects", subjects}};
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
