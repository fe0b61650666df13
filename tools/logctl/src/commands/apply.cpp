#include "commands/apply.hpp"

#include <algorithm>

#include <fmt/format.h>

#include "output.hpp"
#include "xpon/log_config/zlog_files/module_fields.hpp"

namespace xpon::logctl {

void add_apply_options(Arguments& arguments, ApplyOptions& options) {
    arguments.add({"-v,--verbose", "Say what is changed"}, options.verbose);
    arguments.add({"--dry-run", "Check everything and say what would be changed, but change nothing"},
                  options.dry_run);
}

std::string complaint_about(std::span<std::string const> assignments) {
    auto const wrong = std::ranges::find_if(
        assignments, [](auto const& text) { return text.find('=') == std::string::npos; });
    return wrong == assignments.end() ? "" : fmt::format("PATH=VALUE: \"{}\" is not PATH=VALUE", *wrong);
}

core::Result<void> add_assignments(std::span<std::string const> assignments,
                                   cfgdb::Transaction& transaction) {
    for (std::string_view const assignment : assignments) {
        auto const sign = assignment.find('=');
        OUTCOME_TRY(transaction.set(assignment.substr(0, sign), assignment.substr(sign + 1)));
    }
    return core::success();
}

void tell_changes(std::vector<cfgdb::Change> const& changes, bool verbose) {
    if (verbose) {
        for (auto const& [setting, old_value, new_value] : changes) {
            print(fmt::format("{}: {} -> {}\n", setting->path, old_value, new_value));
        }
    }
    auto const takes_effect_at_start = [](cfgdb::Change const& change) {
        auto const* const field = log_config::find_module_field(change.setting->field_id);
        return field != nullptr && !log_config::reaches_its_file(field->module);
    };
    if (std::ranges::any_of(changes, takes_effect_at_start)) {
        tell("note: a level of the session manager takes effect when the daemon is next restarted, not "
             "before");
    }
}

core::Result<bool> apply(cfgdb::Transaction const& transaction, Context const& context,
                         ApplyOptions const& options) {
    OUTCOME_TRY(changes, options.dry_run ? transaction.preview(context.database)
                                         : transaction.commit(context.database));
    tell_changes(changes, options.verbose || options.dry_run);
    return !changes.empty();
}

} // namespace xpon::logctl
