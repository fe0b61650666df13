#include "commands/apply.hpp"

#include <algorithm>

#include <fmt/format.h>

#include "output.hpp"

namespace xpon::logctl {

void add_apply_options(CLI::App& command, ApplyOptions& options) {
    command.add_flag("-v,--verbose", options.verbose, "Say what is changed");
    command.add_flag("--dry-run", options.dry_run,
                     "Check everything and say what would be changed, but change nothing");
}

void tell_changes(std::vector<cfgdb::Change> const& changes, bool verbose) {
    if (verbose) {
        for (auto const& [setting, old_value, new_value] : changes) {
            print(fmt::format("{}: {} -> {}\n", setting->path, old_value, new_value));
        }
    }
    auto const is_session_manager = [](cfgdb::Change const& change) {
        return change.setting->path.starts_with("module.sessionmgr.");
    };
    if (std::ranges::any_of(changes, is_session_manager)) {
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
