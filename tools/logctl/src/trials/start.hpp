#pragma once

#include <cstdint>

#include "commands/change.hpp"

namespace xpon::logctl {

struct NewTrial {
    std::int64_t seconds;   ///< from now until it ends
    bool temporary = false; ///< it needs no confirmation
};

/// Commits the transaction as a trial, or only says what it would change.
core::Result<int> start_trial(cfgdb::Transaction transaction, NewTrial const& wanted, Context const& context,
                              ChangeOptions const& options);

} // namespace xpon::logctl
