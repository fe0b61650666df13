#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/result.hpp"

namespace xpon::logctl {

/// Paths and values as an operator writes them.
using Assignments = std::vector<std::pair<std::string, std::string>>;

/// The larger ones cannot be a configuration.
inline constexpr std::size_t max_settings_file_size = std::size_t{4} * 1024 * 1024;

/// The JSON text that `parse_settings_file` takes.
std::string settings_file(Assignments const& assignments);

/// What is in such a file, "-" for standard input. Fails as `parse_settings_file`, naming the file, and where
/// it cannot be read.
core::Result<Assignments> read_settings_file(std::string const& name);

/// What is in such a text: {"version": 1, "settings": {"PATH": "VALUE" or NUMBER, ...}}, every path or pattern
/// once. Whether paths and values are valid is not looked at. Fails with `InvalidInputArg`, naming what is wrong
/// and where.
core::Result<Assignments> parse_settings_file(std::string_view text);

} // namespace xpon::logctl
