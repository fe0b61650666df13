#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/result.hpp"
#include "xpon/cfgdb/transaction.hpp"

namespace xpon::logctl {

/// The settings that a pattern names, or everything below the group that it names.
core::Result<std::vector<cfgdb::Setting const*>> expand_group(std::string const& pattern);

/// What the database holds for the settings of this program.
class StoredValues {
  public:
    explicit StoredValues(std::vector<cfgdb::StoredSetting>&& stored);
    StoredValues(StoredValues&&) = default;
    StoredValues& operator=(StoredValues&&) = default;

    /// Null if nothing is stored, so that the default is in force.
    cfgdb::StoredSetting const* find(cfgdb::Setting const& setting) const;

    /// All, by path, also what is stored for no setting of this program.
    std::vector<cfgdb::StoredSetting> const& rows() const { return all; }

  private:
    std::vector<cfgdb::StoredSetting> all;
    std::vector<cfgdb::StoredSetting const*> of_setting; // index = place in the table of settings
};

/// Whether there is a database in this folder, or something that only its opening will tell.
bool has_database(std::filesystem::path const& folder);

core::Result<StoredValues> stored_values(std::filesystem::path const& database);

/// A setting's value as an operator writes it.
std::string value_of(cfgdb::Setting const& setting, StoredValues const& stored);

/// Why the log file is not safe in the folder that is set; nothing if it is.
std::optional<std::string> log_folder_problem(StoredValues const& stored);

} // namespace xpon::logctl
