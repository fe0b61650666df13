#pragma once

#include <filesystem>

#include "core/result.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"

namespace xpon::cfgdb {

/// Writes a complete copy of the database as of one instant into one file with mode 0600. A regular file of
/// that name is replaced; on failure it stays unchanged. The database must exist; permission to read is
/// enough.
core::Result<void> backup(std::filesystem::path const& file,
                          std::filesystem::path const& folder = default_folder);

/// Replaces the contents of the database with those of a copy: settings, history, a pending trial. The copy
/// is checked first: it must be an undamaged configuration database of this schema version, every value must
/// be allowed, and no two receivers may be the same. All is written in one transaction and every feed is
/// woken, so a running daemon follows at once. On failure nothing changes. Creates the database if it does
/// not exist. Waits at most 5 s for another writer.
core::Result<void> restore(std::filesystem::path const& file,
                           std::filesystem::path const& folder = default_folder);

} // namespace xpon::cfgdb
