#pragma once

#include <filesystem>
#include <functional>

#include <CLI/CLI.hpp>

#include "core/result.hpp"

namespace xpon::logctl {

/// What every command knows.
struct Context {
    std::filesystem::path database; ///< the database's folder
};

/// What the command line asks for; run once the whole line was understood. Returns the exit status; an error
/// is told to the operator and is status 1.
using Action = std::function<core::Result<int>(Context const&)>;

// Each adds its command to the program; when the command is given, `chosen` becomes what it does.
void add_show(CLI::App& program, Action& chosen);
void add_set(CLI::App& program, Action& chosen);
void add_reset(CLI::App& program, Action& chosen);
void add_modules(CLI::App& program, Action& chosen);
void add_preview(CLI::App& program, Action& chosen);
void add_status(CLI::App& program, Action& chosen);
void add_check(CLI::App& program, Action& chosen);
void add_history(CLI::App& program, Action& chosen);
void add_rollback(CLI::App& program, Action& chosen);
void add_commit_confirm(CLI::App& program, Action& chosen);
void add_confirm(CLI::App& program, Action& chosen);
void add_export(CLI::App& program, Action& chosen);
void add_import(CLI::App& program, Action& chosen);
void add_backup(CLI::App& program, Action& chosen);
void add_restore(CLI::App& program, Action& chosen);
void add_watch(CLI::App& program, Action& chosen);

/// Prints what may stand in the place of the last word of a command line, for the shell's completion.
void complete(CLI::App const& program, std::vector<std::string> const& words);

} // namespace xpon::logctl
