#pragma once

#include <set>
#include <string>

namespace xpon::logctl {

/// What may stand in the place of a word that begins so; other names may be among them.
using Names = std::set<std::string>;

// Settings, each path up to its next component: "module.sn" gives "module.snmp.".
Names paths(std::string const& begin);
Names settable_paths(std::string const& begin);

/// Settings, with the levels behind the sign where the pattern before it is of levels.
Names assignments(std::string const& begin);

Names module_names(std::string const& begin);

/// Outputs of which there is a preview.
Names output_names(std::string const& begin);

} // namespace xpon::logctl
