#pragma once

#include <span>

#include "commands/command.hpp"
#include "xpon/cfgdb/transaction.hpp"

namespace xpon::logctl {

struct ApplyOptions {
    bool verbose = false;
    bool dry_run = false;
};

/// Adds the options to a command that changes settings.
void add_apply_options(Arguments& arguments, ApplyOptions& options);

/// Why these are not all PATH=VALUE; empty if they are.
std::string complaint_about(std::span<std::string const> assignments);

/// Adds these, each PATH=VALUE, to the transaction.
core::Result<void> add_assignments(std::span<std::string const> assignments, cfgdb::Transaction& transaction);

/// Says what is changed, and what the operator should know about it.
void tell_changes(std::vector<cfgdb::Change> const& changes, bool verbose);

/// Commits the transaction, or only says what it would change. Whether there is something to change.
core::Result<bool> apply(cfgdb::Transaction const& transaction, Context const& context,
                         ApplyOptions const& options);

} // namespace xpon::logctl
