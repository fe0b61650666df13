#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "core/result.hpp"
#include "xpon/cfgdb/transaction.hpp"

namespace xpon::cfgdb {

/// Why a folder is no place for the log file, such as "others than root may write /tmp"; nothing if root
/// alone decides what is in it. Looks at every folder on the way there, also through links; where one does
/// not exist yet, those above it decide.
std::optional<std::string> log_folder_flaw(std::filesystem::path const& folder);

/// Fails with `InvalidInputArg` if a change puts the log file into a folder with a flaw.
core::Result<void> check_log_folder(Change const& change);

} // namespace xpon::cfgdb
