#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/result.hpp"

namespace CLI {
class App;
}

namespace xpon::logctl {

/// What every command knows.
struct Context {
    std::filesystem::path database; ///< the database's folder
};

/// What a command does, run once the whole command line has been understood. Returns the exit status; an
/// error is reported to the operator and is status 1.
using Action = std::function<core::Result<int>(Context const&)>;

/// One thing that a command takes on its line.
struct Argument {
    // NOLINTBEGIN(readability-redundant-member-init): without them a partial initialiser is a warning
    char const* name; ///< such as "-v,--verbose"; without dashes it is known by its position
    char const* help;
    char const* type = ""; ///< what stands for the value in the help
    bool required = false;
    bool hidden = false;                                 ///< from help and completion
    std::optional<std::pair<double, double>> range = {}; ///< of the numbers that are allowed
    bool whole = true;                                   ///< of them only those without a fraction
    char const* without_value = nullptr; ///< what a text is if the option is given without "=" and a value
    // NOLINTEND(readability-redundant-member-init)
};

/// What a command takes. It hides the parser, whose header takes seconds to compile.
class Arguments {
  public:
    explicit Arguments(CLI::App& of_command)
      : command{of_command} {}

    /// The parser writes the value, which must live as long as the parser; a bool is true if the flag is
    /// given.
    template <class Value>
    void add(Argument const& argument, Value& value);

    /// Calls this once the values are there; the line is refused with the text that it returns, unless empty.
    void verify(std::function<std::string()> const& complaint);

    /// Of all commands.
    CLI::App const& program() const;

  private:
    CLI::App& command;
};

// What each command takes and does.
Action show_command(Arguments& arguments);
Action set_command(Arguments& arguments);
Action apply_command(Arguments& arguments);
Action reset_command(Arguments& arguments);
Action modules_command(Arguments& arguments);
Action preview_command(Arguments& arguments);
Action status_command(Arguments& arguments);
Action probe_command(Arguments& arguments);
Action check_command(Arguments& arguments);
Action history_command(Arguments& arguments);
Action compare_command(Arguments& arguments);
Action rollback_command(Arguments& arguments);
Action commit_confirm_command(Arguments& arguments);
Action trials_command(Arguments& arguments);
Action confirm_command(Arguments& arguments);
Action abort_command(Arguments& arguments);
Action extend_command(Arguments& arguments);
Action export_command(Arguments& arguments);
Action import_command(Arguments& arguments);
Action backup_command(Arguments& arguments);
Action restore_command(Arguments& arguments);
Action watch_command(Arguments& arguments);

} // namespace xpon::logctl
