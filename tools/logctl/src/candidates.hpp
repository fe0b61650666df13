#pragma once

#include <set>
#include <string>

#include "commands/command.hpp"

namespace xpon::logctl {

/// What may stand in the place of a word that begins so; other names may be among them.
using Names = std::set<std::string>;

// Settings, each path up to its next component: "module.sn" gives "module.snmp.".
Names paths(std::string const& begin, Context const& context);
Names settable_paths(std::string const& begin, Context const& context);

/// Stands for the names of files, or of folders, which the shell knows itself; no candidate begins so.
inline constexpr char const* files_of_the_shell = ":files";
inline constexpr char const* folders_of_the_shell = ":folders";

/// Settings, with values behind the sign: levels, folders, or the default.
Names assignments(std::string const& begin, Context const& context);

Names module_names(std::string const& begin, Context const& context);

/// Trials that are pending.
Names trial_numbers(std::string const& begin, Context const& context);

/// Transactions, to compare with or to go back to.
Names transaction_numbers(std::string const& begin, Context const& context);
Names transactions_or_files(std::string const& begin, Context const& context);

Names files(std::string const& begin, Context const& context);

/// Outputs of which there is a preview.
Names output_names(std::string const& begin, Context const& context);

} // namespace xpon::logctl
