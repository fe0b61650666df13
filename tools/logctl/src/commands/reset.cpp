#include <algorithm>
#include <memory>

#include <fmt/format.h>

#include "commands/change.hpp"
#include "output.hpp"
#include "xpon/cfgdb/printable.hpp"

namespace xpon::logctl {

namespace {

struct Options : ChangeOptions {
    std::vector<std::string> patterns;
};

/// The rows among these that are stored and no settings. Without a database there are none.
std::vector<std::string> stray_rows(std::vector<std::string> const& patterns, Context const& context) {
    std::vector<std::string> stray;
    if (auto const stored = cfgdb::stored_settings(context.database); stored.has_value()) {
        for (auto const& row : stored.value()) {
            if (row.setting == nullptr && std::ranges::count(patterns, row.path) > 0) {
                stray.push_back(row.path);
            }
        }
    }
    return stray;
}

core::Result<int> reset(Context const& context, Options const& options) {
    auto const stray = stray_rows(options.patterns, context);
    cfgdb::Transaction transaction;
    for (auto const& pattern : options.patterns) {
        if (std::ranges::count(stray, pattern) == 0) {
            OUTCOME_TRY(transaction.reset(pattern));
        }
    }
    for (auto const& path : stray) {
        if (!options.dry_run) {
            OUTCOME_TRY(cfgdb::remove_stray_row(path, context.database));
        }
        tell(fmt::format("{}: no setting, the stored row {} removed", cfgdb::printable(path),
                         options.dry_run ? "would be" : "is"));
    }
    return change(std::move(transaction), "reset", context, options);
}

} // namespace

Action reset_command(Arguments& arguments) {
    auto const options = std::make_shared<Options>();
    arguments.add({.name = "PATH",
                   .help = "Settings, such as syslog.file.level, module.snmp.* or * for everything",
                   .required = true},
                  options->patterns);
    add_change_options(arguments, *options);
    return [options](Context const& context) { return reset(context, *options); };
}

} // namespace xpon::logctl
