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

/// Settings, with the levels behind the sign where the pattern before it is of levels.
Names assignments(std::string const& begin, Context const& context);

Names module_names(std::string const& begin, Context const& context);

/// Trials that are pending.
Names trial_numbers(std::string const& begin, Context const& context);

/// Outputs of which there is a preview.
Names output_names(std::string const& begin, Context const& context);

} // namespace xpon::logctl
