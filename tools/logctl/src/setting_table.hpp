#pragma once

#include <string>
#include <vector>

#include "output.hpp"
#include "xpon/cfgdb/settings.hpp"
#include "xpon/cfgdb/trial.hpp"

namespace xpon::logctl {

enum class Source { Default, Database, BuiltIn };

/// One setting as it is in force.
struct SettingRow {
    cfgdb::Setting const* setting;
    std::string value;
    Source source;
    bool allowed = true; ///< false: the database holds something that must not be there, `value` describes it
    cfgdb::Trial const* trial = nullptr; ///< that it is on
};

/// Path, value, default and source in aligned columns, with a heading.
std::string to_table(std::vector<SettingRow> const& rows, Screen const& screen);

/// The same as an array of objects.
std::string to_json(std::vector<SettingRow> const& rows);

} // namespace xpon::logctl
