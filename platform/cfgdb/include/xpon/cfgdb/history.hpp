#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "core/result.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"

namespace xpon::cfgdb {

/// One changed setting of one transaction. The texts are safe to print.
struct HistoryEntry {
    std::int64_t number; ///< of the transaction; they count from 1 without gaps
    std::int64_t time;   ///< seconds since the epoch
    std::string author;
    std::string path;
    std::string old_value; ///< as an operator writes it
    std::string new_value;
};

/// The changes of the transactions after this number, oldest first, as of one instant. The database must
/// exist; permission to read is enough. The library keeps the newest 1000 transactions of any
/// size.
core::Result<std::vector<HistoryEntry>> history(std::filesystem::path const& folder = default_folder,
                                                std::int64_t after = 0);

} // namespace xpon::cfgdb
