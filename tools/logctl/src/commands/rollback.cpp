#include <memory>

#include <fmt/format.h>

#include "commands/change.hpp"
#include "output.hpp"
#include "past.hpp"
#include "xpon/cfgdb/usable.hpp"

namespace xpon::logctl {

namespace {

struct Options : ChangeOptions {
    std::int64_t number = 0;
};

core::Result<int> rollback(Context const& context, Options options) {
    options.verbose = true; // always
    OUTCOME_TRY(history, cfgdb::history(context.database));
    OUTCOME_TRY(settings, changed_since(options.number, history));
    cfgdb::Transaction transaction;
    for (auto const& [path, since] : settings) {
        OUTCOME_TRY(transaction.put_back(path, since.now, since.then));
    }
    OUTCOME_TRY(describe(transaction, fmt::format("rollback {}", options.number), options));
    OUTCOME_TRY(planned, transaction.preview(context.database));
    for (auto const& change : planned) {
        OUTCOME_TRY(cfgdb::check_usable(change));
    }
    tell_changes(planned, options);
    OUTCOME_TRY(flush_output());
    if (options.dry_run) {
        return status_of_success(!planned.empty(), options);
    }
    OUTCOME_TRY(done, transaction.commit(context.database));
    if (done.size() != planned.size()) {
        tell(fmt::format("{} of these settings keep their values: somebody else has changed them since",
                         planned.size() - done.size()));
    }
    return finish(transaction.fields(), !done.empty(), context, options);
}

} // namespace

Action rollback_command(Arguments& arguments) {
    auto const options = std::make_shared<Options>();
    arguments.add({.name = "NUMBER",
                   .help = "The last transaction to keep, as history numbers it; 0 keeps none",
                   .required = true},
                  options->number);
    add_change_options(arguments, *options);
    return [options](Context const& context) { return rollback(context, *options); };
}

} // namespace xpon::logctl
