#pragma once

#include <cstdint>
#include <filesystem>
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
    /// In seconds; 0 if it is over.
    std::int64_t left() const;
};

/// How long a trial lasts, and what comes then.
struct TrialTerms {
    BootInstant end;
    bool temporary = false; ///< it ends in any case, so nobody need confirm it
    /// The caller's own name for what ends it.
    std::string timer{}; // NOLINT(readability-redundant-member-init): lets callers omit it
};

/// A setting on trial; its value is what the trial or, after a copy was put back, the database has.
struct OnTrial {
    std::string path;
    std::string before; ///< the value that is put back, as an operator writes it
};

/// A transaction that is undone when its time is over. A setting leaves the trial with the next transaction
/// that names it, whatever value that gives. A trial without settings is over. The texts are safe to print.
struct Trial {
    std::int64_t number; ///< in the history
    std::string author;
    TrialTerms terms;
    std::vector<OnTrial> settings; ///< by path
};

/// A new trial; without changes there is none.
struct StartedTrial {
    std::int64_t number;
    std::vector<Change> changes;
};

/// What became of a trial.
struct EndedTrial {
    Trial trial;
    std::vector<Change> undone;
    std::vector<std::string> left; ///< paths that could not be put back: another receiver has the address now
};

/// The trials that have not ended, by number. The database must exist; permission to read is enough.
core::Result<std::vector<Trial>> pending_trials(std::filesystem::path const& folder = default_folder);

/// Commits as `Transaction::commit` does and records, in the same transaction, that it is a trial. If nothing
/// differs, there is no trial. Fails with `Already` if a setting is on another trial.
core::Result<StartedTrial> commit_trial(Transaction const& transaction, TrialTerms const& terms,
                                        std::filesystem::path const& folder = default_folder,
                                        std::string const& author = current_author());

/// Makes a trial permanent. This and all that follows wakes the feeds and fails with `Empty` if the trial is
/// not pending. This and `extend_trial` fail with `InvalidState` if its time is over.
core::Result<Trial> confirm_trial(std::int64_t number, std::filesystem::path const& folder = default_folder,
                                  std::string const& author = current_author());

/// Gives a trial another end and timer. Returns it as it was.
core::Result<Trial> extend_trial(std::int64_t number, BootInstant const& end, std::string const& timer,
                                 std::filesystem::path const& folder = default_folder);

/// Ends a trial with a new transaction that puts back every setting that is still on it. What would give two
/// receivers the same address and port stays as it is.
core::Result<EndedTrial> abort_trial(std::int64_t number,
                                     std::filesystem::path const& folder = default_folder,
                                     std::string const& author = current_author());

/// The same, signed by the author of the trial, if its time is over; otherwise fails with `InvalidState`.
core::Result<EndedTrial> end_overdue_trial(std::int64_t number,
                                           std::filesystem::path const& folder = default_folder);

} // namespace xpon::cfgdb
