#pragma once

#include <filesystem>

#include "core/result.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"

namespace xpon::cfgdb {

/// Writes a copy of the database as of one instant: one file, complete, mode 0600. It takes the place of a
/// regular file of that name; on failure, that stays as it was. The database must exist; reading permission
/// is enough.
core::Result<void> backup(std::filesystem::path const& file,
                          std::filesystem::path const& folder = default_folder);

/// Makes the database what a copy says: settings, history, a pending trial. The copy is looked at first: a
/// configuration database of this schema version, undamaged, every value of a setting allowed and no two
/// receivers the same. All of it is written in one transaction and every feed woken, so that a running daemon
/// follows at once; on failure nothing is changed. Where there is no database one is made. Waits at most 5 s
/// for another writer.
core::Result<void> restore(std::filesystem::path const& file,
                           std::filesystem::path const& folder = default_folder);

} // namespace xpon::cfgdb
