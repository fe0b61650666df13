#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "core/result.hpp"
#include "xpon/cfgdb/transaction.hpp"

namespace xpon::logctl {

/// The settings that a pattern names, or everything below the group that it names.
core::Result<std::vector<cfgdb::Setting const*>> expand_group(std::string const& pattern);

using StoredValues = std::map<cfgdb::Setting const*, cfgdb::StoredSetting>;

/// What the database holds for the settings of this program.
core::Result<StoredValues> stored_values(std::filesystem::path const& database);

/// A setting's value as an operator writes it.
std::string value_of(cfgdb::Setting const& setting, StoredValues const& stored);

} // namespace xpon::logctl
