#include "stored.hpp"

namespace xpon::logctl {

core::Result<std::vector<cfgdb::Setting const*>> expand_group(std::string const& pattern) {
    auto found = cfgdb::expand(pattern);
    if (found.has_error()) {
        if (auto group = cfgdb::expand(pattern + ".*"); group.has_value()) {
            return group;
        }
    }
    return found;
}

core::Result<StoredValues> stored_values(std::filesystem::path const& database) {
    OUTCOME_TRY(stored, cfgdb::stored_settings(database));
    StoredValues values;
    for (auto& row : stored) {
        if (row.setting != nullptr) {
            values.emplace(row.setting, std::move(row));
        }
    }
    return values;
}

std::string value_of(cfgdb::Setting const& setting, StoredValues const& stored) {
    auto const found = stored.find(&setting);
    return found != stored.end() ? found->second.value : cfgdb::to_text(setting.kind, setting.default_value);
}

} // namespace xpon::logctl
