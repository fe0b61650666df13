#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <set>

#include <fmt/format.h>

#include "commands/command.hpp"
#include "output.hpp"
#include "xpon/cfgdb/catalogue.hpp"
#include "xpon/cfgdb/settings.hpp"
#include "xpon/log_config/zlog_files/config_files.hpp"

namespace xpon::logctl {

namespace {

using Words = std::vector<std::string>;

/// The paths that begin so, each up to its next component: "module.sn" gives "module.snmp.". A whole path
/// ends in `end`.
std::set<std::string> paths(std::string const& begin, bool settable, std::string_view end) {
    std::set<std::string> found;
    for (auto const& setting : cfgdb::settings()) {
        if (setting.path.starts_with(begin) && !(settable && setting.built_in())) {
            auto const dot = setting.path.find('.', begin.size());
            found.insert(dot == std::string::npos ? setting.path + std::string{end}
                                                  : setting.path.substr(0, dot + 1));
        }
    }
    return found;
}

std::set<std::string> any_path(std::string const& begin) {
    return paths(begin, false, "");
}

std::set<std::string> settable_path(std::string const& begin) {
    return paths(begin, true, "");
}

/// A path, or a level behind one; whether a pattern is of levels is not looked at.
std::set<std::string> assignment(std::string const& begin) {
    auto const sign = begin.find('=');
    if (sign == std::string::npos) {
        return paths(begin, true, "=");
    }
    auto const found = cfgdb::expand(begin.substr(0, sign));
    std::set<std::string> levels;
    if (found.has_value() && found.value().front()->kind == cfgdb::Kind::Level) {
        for (std::int64_t level = 0; cfgdb::is_allowed(cfgdb::Kind::Level, level); ++level) {
            levels.insert(begin.substr(0, sign + 1) + cfgdb::to_text(cfgdb::Kind::Level, level));
        }
    }
    return levels;
}

std::set<std::string> module_names(std::string const&) {
    std::set<std::string> names;
    for (auto const& module : cfgdb::modules()) {
        names.emplace(module.name);
    }
    return names;
}

std::set<std::string> outputs(std::string const&) {
    std::set<std::string> names{"syslog-ng"};
    for (auto const& file : log_config::zlog_files) {
        names.emplace(file.name);
    }
    return names;
}

struct Argument {
    std::string_view command;
    std::set<std::string> (*candidates)(std::string const& begin);
};

// The commands whose arguments have names; the shell completes files elsewhere.
constexpr Argument arguments[] = {
    {"show", any_path},        {"set", assignment},  {"reset", settable_path},       {"history", any_path},
    {"modules", module_names}, {"preview", outputs}, {"commit-confirm", assignment},
};

void add_options(CLI::App const& app, std::set<std::string>& to) {
    for (auto const* option : app.get_options()) {
        if (option->get_group().empty()) {
            continue; // hidden
        }
        for (auto const& name : option->get_lnames()) {
            to.insert("--" + name);
        }
    }
}

/// What may stand in the place of the last word.
std::set<std::string> candidates(CLI::App const& program, Words const& words) {
    std::string const current = words.empty() ? "" : words.back();
    auto const commands =
        program.get_subcommands([](CLI::App const* app) { return !app->get_group().empty(); });
    CLI::App const* command = nullptr;
    for (auto const& word : Words{words.begin(), words.empty() ? words.end() : words.end() - 1}) {
        for (auto const* one : commands) {
            command = command == nullptr && one->get_name() == word ? one : command;
        }
    }
    std::set<std::string> found;
    if (current.starts_with('-')) {
        add_options(program, found);
        if (command != nullptr) {
            add_options(*command, found);
        }
    } else if (command == nullptr) {
        for (auto const* one : commands) {
            found.insert(one->get_name());
        }
    } else if (auto const* const argument =
                   std::ranges::find(arguments, command->get_name(), &Argument::command);
               argument != std::end(arguments)) {
        found = argument->candidates(current);
    }
    std::erase_if(found, [&](auto const& candidate) { return !candidate.starts_with(current); });
    return found;
}

} // namespace

void complete(CLI::App const& program, std::vector<std::string> const& words) {
    for (auto const& candidate : candidates(program, words)) {
        print(candidate + "\n");
    }
}

} // namespace xpon::logctl
