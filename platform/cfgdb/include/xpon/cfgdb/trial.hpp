#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/result.hpp"
#include "xpon/cfgdb/transaction.hpp"

namespace xpon::cfgdb {

/// An instant that no change of the clock moves.
struct BootInstant {
    std::string boot;     ///< which boot of the machine, as the kernel names it; empty: unknown
    std::int64_t seconds; ///< of CLOCK_BOOTTIME in that boot

    /// Now, and so many seconds later.
    static BootInstant in(std::int64_t seconds);
    /// Whether it is over: reached, or of an earlier boot. A boot that is unknown counts as this one.
    bool over() const;
};

/// A transaction that is undone unless it is confirmed.
struct Trial {
    std::int64_t number; ///< in the history
    BootInstant end;
    std::string author;
};

/// The trial that waits for its confirmation; nothing if none does. The database must exist; reading
/// permission is enough.
core::Result<std::optional<Trial>> pending_trial(std::filesystem::path const& folder = default_folder);

/// Commits as `Transaction::commit` does and remembers, in the same transaction, that it is a trial. Where
/// nothing differs there is no trial. Fails with `Already` while another is pending.
core::Result<std::vector<Change>> commit_trial(Transaction const& transaction, BootInstant const& end,
                                               std::filesystem::path const& folder = default_folder,
                                               std::string const& author = current_author());

/// Makes the pending trial permanent and wakes the feeds. Fails with `Empty` if none is pending.
core::Result<Trial> confirm_trial(std::filesystem::path const& folder = default_folder);

/// Undoes a trial as a new transaction, if it is still pending: of the settings that it changed, those that
/// still have its values. Otherwise does nothing.
core::Result<std::vector<Change>> undo_trial(std::int64_t number,
                                             std::filesystem::path const& folder = default_folder,
                                             std::string const& author = current_author());

} // namespace xpon::cfgdb
