#pragma once

#include <span>
#include <string_view>

#include "commands/command.hpp"
#include "xpon/cfgdb/transaction.hpp"

namespace xpon::logctl {

struct WaitOptions {
    std::string seconds; ///< empty if nothing is waited for
};

struct ChangeOptions : WaitOptions {
    std::string comment;      ///< for the history
    std::string changed_exit; ///< the exit status if something was changed; empty: 0
    bool verbose = false;
    bool json = false;
    bool dry_run = false;
};

/// Adds --wait.
void add_wait_option(Arguments& arguments, WaitOptions& options);

/// Adds the options of a command that changes settings.
void add_change_options(Arguments& arguments, ChangeOptions& options);

/// Why these are not all PATH=VALUE; empty if they are.
std::string complaint_about(std::span<std::string const> assignments);

/// Adds these, each PATH=VALUE, to the transaction.
core::Result<void> add_assignments(std::span<std::string const> assignments, cfgdb::Transaction& transaction);

/// Says what is changed if that is asked for, and what the operator should know about it.
void tell_changes(std::vector<cfgdb::Change> const& changes, ChangeOptions const& options);

/// What follows a commit: waits, if that is asked for, until the outputs of these fields are in step. Else
/// says what keeps a change of them from taking effect now. The command's exit status.
core::Result<int> follow(std::span<std::uint32_t const> fields, bool changed, Context const& context,
                         WaitOptions const& options);

/// The exit status of a command that has succeeded or, in a dry run, would.
int status_of_success(bool changed, ChangeOptions const& options);

/// The same after `follow`.
core::Result<int> finish(std::span<std::uint32_t const> fields, bool changed, Context const& context,
                         ChangeOptions const& options);

/// For the history: how the settings are changed, and the operator's comment. Fails if that is too long.
core::Result<void> describe(cfgdb::Transaction& transaction, std::string_view how,
                            ChangeOptions const& options);

/// Commits the transaction and finishes it, or only says what it would change. `how` is for the history. The
/// command's exit status.
core::Result<int> change(cfgdb::Transaction transaction, std::string_view how, Context const& context,
                         ChangeOptions const& options);

} // namespace xpon::logctl
