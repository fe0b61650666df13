#include <map>
#include <memory>

#include <fmt/format.h>

#include "commands/change.hpp"
#include "core/failure.hpp"
#include "output.hpp"
#include "xpon/cfgdb/history.hpp"
#include "xpon/cfgdb/log_folder.hpp"

namespace xpon::logctl {

namespace {

struct Options : WaitOptions {
    std::int64_t number = 0;
    bool dry_run = false;
};

core::Result<void> check_number(std::int64_t number, std::vector<cfgdb::HistoryEntry> const& all) {
    auto const newest = all.empty() ? 0 : all.back().number;
    auto const oldest = all.empty() ? 0 : all.front().number - 1;
    if (number < oldest || number > newest) {
        return core::fail(core::Error::InvalidInputArg, "{}: no such transaction; rollback accepts {} to {}",
                          number, oldest, newest);
    }
    return core::success();
}

core::Result<int> rollback(Context const& context, Options const& options) {
    OUTCOME_TRY(all, cfgdb::history(context.database));
    OUTCOME_TRY(check_number(options.number, all));

    struct Values {
        std::string before;
        std::string now;
    };
    std::map<std::string, Values> settings;
    for (auto const& entry : all) {
        if (entry.number > options.number) {
            settings.try_emplace(entry.path, Values{entry.old_value, {}}).first->second.now = entry.new_value;
        }
    }
    cfgdb::Transaction transaction;
    for (auto const& [path, values] : settings) {
        OUTCOME_TRY(transaction.put_back(path, values.now, values.before));
    }
    OUTCOME_TRY(planned, transaction.preview(context.database));
    for (auto const& change : planned) {
        OUTCOME_TRY(cfgdb::check_log_folder(change));
    }
    tell_changes(planned, true);
    OUTCOME_TRY(flush_output());
    if (options.dry_run) {
        return 0;
    }
    OUTCOME_TRY(done, transaction.commit(context.database));
    if (done.size() != planned.size()) {
        tell(fmt::format("{} of these settings keep their values: somebody else has changed them since",
                         planned.size() - done.size()));
    }
    return follow(transaction.fields(), !done.empty(), context, options);
}

} // namespace

Action rollback_command(Arguments& arguments) {
    auto const options = std::make_shared<Options>();
    arguments.add({.name = "NUMBER",
                   .help = "The last transaction to keep, as history numbers it; 0 keeps none",
                   .required = true},
                  options->number);
    arguments.add({"--dry-run", "Say what would be changed, but change nothing"}, options->dry_run);
    add_wait_option(arguments, *options);
    return [options](Context const& context) { return rollback(context, *options); };
}

} // namespace xpon::logctl
