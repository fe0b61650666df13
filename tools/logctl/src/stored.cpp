#include "stored.hpp"

#include <system_error>

#include "xpon/cfgdb/usable.hpp"

namespace xpon::logctl {

namespace {

std::size_t place_of(cfgdb::Setting const& setting) {
    return static_cast<std::size_t>(&setting - cfgdb::settings().data());
}

} // namespace

core::Result<std::vector<cfgdb::Setting const*>> expand_group(std::string const& pattern) {
    auto found = cfgdb::expand(pattern);
    if (found.has_error()) {
        if (auto group = cfgdb::expand(pattern + ".*"); group.has_value()) {
            return group;
        }
    }
    return found;
}

StoredValues::StoredValues(std::vector<cfgdb::StoredSetting>&& stored)
  : all{std::move(stored)}
  , of_setting(cfgdb::settings().size()) {
    for (auto const& row : all) {
        if (row.setting != nullptr) {
            of_setting.at(place_of(*row.setting)) = &row;
        }
    }
}

cfgdb::StoredSetting const* StoredValues::find(cfgdb::Setting const& setting) const {
    return of_setting.at(place_of(setting));
}

bool has_database(std::filesystem::path const& folder) {
    std::error_code unknown;
    return std::filesystem::exists(folder / "running.db", unknown) || unknown;
}

core::Result<StoredValues> stored_values(std::filesystem::path const& database) {
    OUTCOME_TRY(stored, cfgdb::stored_settings(database));
    return StoredValues{std::move(stored)};
}

std::string value_of(cfgdb::Setting const& setting, StoredValues const& stored) {
    auto const* const found = stored.find(setting);
    return found != nullptr ? found->value : cfgdb::to_text(setting.kind, setting.default_value);
}

std::optional<std::string> log_folder_problem(StoredValues const& stored) {
    auto const& setting = *cfgdb::find_setting("syslog.file.path");
    auto const folder = value_of(setting, stored);
    if (cfgdb::parse(setting, folder).has_error()) {
        return std::nullopt; // not a folder at all
    }
    return cfgdb::flaw_of(setting, folder);
}

} // namespace xpon::logctl
