#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "core/result.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"

namespace xpon::cfgdb {

/// The history shows this many transactions, the newest, whatever their size.
inline constexpr std::int64_t kept_transactions = 1000;

/// One setting that a transaction has changed, with its values as an operator writes them. They are equal if
/// it was only taken out of a trial.
struct PastChange {
    std::string path;
    std::string old_value;
    std::string new_value;
};

/// A transaction of the history. The texts are safe to print.
struct PastTransaction {
    std::int64_t number; ///< they count from 1 without gaps
    std::int64_t time;   ///< seconds since the epoch
    std::string author;
    std::string account; ///< those that the author has used; empty if it was the author's own
    std::string kind;    ///< such as "set", "rollback" or "trial 7 undone"; empty if it is not known
    std::string comment;
    std::vector<PastChange> changes; ///< in the order of `settings`
};

/// The transactions after this number, oldest first, as of one instant. The database must exist; permission
/// to read is enough.
core::Result<std::vector<PastTransaction>> history(std::filesystem::path const& folder = default_folder,
                                                   std::int64_t after = 0);

} // namespace xpon::cfgdb
