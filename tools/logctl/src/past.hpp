#pragma once

#include <map>
#include <string>
#include <vector>

#include "core/result.hpp"
#include "xpon/cfgdb/history.hpp"

namespace xpon::logctl {

/// A setting that was changed after a transaction.
struct Since {
    std::string then; ///< its value right after that transaction
    std::string now;  ///< that of its newest change
};

/// What was changed after the transaction of this number, 0 for the empty database, by path. Fails with
/// `InvalidInputArg` if the history does not reach back so far, or there is no such transaction.
core::Result<std::map<std::string, Since>> changed_since(std::int64_t number,
                                                         std::vector<cfgdb::PastTransaction> const& history);

} // namespace xpon::logctl
