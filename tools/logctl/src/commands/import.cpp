#include <memory>

#include "commands/change.hpp"
#include "settings_file.hpp"

namespace xpon::logctl {

namespace {

struct Options : ChangeOptions {
    std::string file;
    bool merge = false;
};

core::Result<cfgdb::Transaction> transaction_of(Assignments const& assignments, bool merge) {
    cfgdb::Transaction transaction;
    if (!merge) {
        OUTCOME_TRY(transaction.reset("*"));
    }
    for (auto const& [path, value] : assignments) {
        OUTCOME_TRY(transaction.set(path, value));
    }
    return transaction;
}

core::Result<int> import(Context const& context, Options const& options) {
    OUTCOME_TRY(assignments, read_settings_file(options.file));
    OUTCOME_TRY(transaction, transaction_of(assignments, options.merge));
    return change(std::move(transaction), "import", context, options);
}

} // namespace

Action import_command(Arguments& arguments) {
    auto const options = std::make_shared<Options>();
    arguments.add({.name = "FILE", .help = "The file; - is the standard input", .required = true},
                  options->file);
    arguments.add({"--merge", "Leave the settings that the file does not name as they are"}, options->merge);
    add_change_options(arguments, *options);
    return [options](Context const& context) { return import(context, *options); };
}

} // namespace xpon::logctl
