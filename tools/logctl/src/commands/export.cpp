
#include <fmt/format.h>

#include "commands/command.hpp"
#include "core/failure.hpp"
#include "output.hpp"
#include "settings_file.hpp"
#include "stored.hpp"

namespace xpon::logctl {

namespace {

core::Result<int> export_settings(Context const& context) {
    OUTCOME_TRY(stored, stored_values(context.database));
    Assignments assignments;
    for (auto const& setting : cfgdb::settings()) {
        auto const* const found = stored.find(setting);
        if (found == nullptr) {
            continue;
        }
        if (!found->allowed) {
            return core::fail(core::Error::InvalidState, "{}: {}", setting.path,
                              cfgdb::wrongly_stored(found->value, setting.kind));
        }
        assignments.emplace_back(setting.path, found->value);
    }
    print(settings_file(assignments));
    return 0;
}

} // namespace

Action export_command(Arguments& /*arguments*/) {
    return export_settings;
}

} // namespace xpon::logctl
