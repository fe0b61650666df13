#pragma once

#include <span>
#include <string>

namespace CLI {
class App;
class ParseError;
} // namespace CLI

namespace xpon::logctl {

/// What to tell whoever has written these words, which the program does not understand: what is wrong, what is
/// allowed or nearest, and where to read on.
std::string misuse(CLI::App const& program, std::span<std::string const> words, CLI::ParseError const& error);

/// "unknown command ...", with the nearest or all of the program's commands.
std::string unknown_command(CLI::App const& program, std::string const& name);

} // namespace xpon::logctl
