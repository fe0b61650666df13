#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/result.hpp"
#include "xpon/cfgdb/transaction.hpp"

namespace xpon::cfgdb {

/// A point in time that does not move when the clock is changed.
struct BootInstant {
    std::string boot;     ///< which boot of the machine, as the kernel names it; empty: unknown
    std::int64_t seconds; ///< of CLOCK_BOOTTIME in that boot

    /// The time this many seconds from now.
    static BootInstant in(std::int64_t seconds);
    /// Whether the time has passed: it is reached, or belongs to an earlier boot. An unknown boot counts as
    /// this one.
    bool over() const;
};

/// A transaction that is undone unless it is confirmed.
struct Trial {
    std::int64_t number; ///< in the history
    BootInstant end;
    std::string author;
};

/// The trial that waits for its confirmation, or nothing. The database must exist; permission to read is
/// enough.
core::Result<std::optional<Trial>> pending_trial(std::filesystem::path const& folder = default_folder);

/// Commits as `Transaction::commit` does and records, in the same transaction, that it is a trial. If nothing
/// differs, there is no trial. Fails with `Already` while another trial is pending.
core::Result<std::vector<Change>> commit_trial(Transaction const& transaction, BootInstant const& end,
                                               std::filesystem::path const& folder = default_folder,
                                               std::string const& author = current_author());

/// Makes the pending trial permanent and wakes the feeds. Fails with `Empty` if none is pending.
core::Result<Trial> confirm_trial(std::filesystem::path const& folder = default_folder);

/// Undoes a trial with a new transaction, if it is still pending. Only settings that still have the trial's
/// values are put back. Does nothing if the trial is not pending.
core::Result<std::vector<Change>> undo_trial(std::int64_t number,
                                             std::filesystem::path const& folder = default_folder,
                                             std::string const& author = current_author());

} // namespace xpon::cfgdb
