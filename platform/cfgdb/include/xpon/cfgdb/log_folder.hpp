#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace xpon::cfgdb {

/// Why a folder must not contain the log file, such as "users other than root can write to /tmp"; nothing if only
/// root controls its contents. Checks every folder on the path, following links. If a folder does not exist
/// yet, those above it decide.
std::optional<std::string> log_folder_flaw(std::filesystem::path const& folder);

} // namespace xpon::cfgdb
