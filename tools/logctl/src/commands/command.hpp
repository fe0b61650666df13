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

/// What the command line asks for; run once the whole line was understood. An error is told to the operator.
using Action = std::function<core::Result<void>(Context const&)>;

// Each adds its command to the program; when the command is given, `chosen` becomes what it does.
void add_show(CLI::App& program, Action& chosen);
void add_set(CLI::App& program, Action& chosen);
void add_reset(CLI::App& program, Action& chosen);
void add_watch(CLI::App& program, Action& chosen);

} // namespace xpon::logctl
