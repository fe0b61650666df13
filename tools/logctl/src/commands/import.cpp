#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>

#include <fmt/format.h>

#include "commands/change.hpp"
#include "core/failure.hpp"
#include "output.hpp"
#include "settings_file.hpp"
#include "xpon/cfgdb/printable.hpp"

namespace xpon::logctl {

namespace {

struct Options : ChangeOptions {
    std::string file;
    bool merge = false;
    bool changed_exit = false;
};

constexpr int status_if_changed = 2;

/// At most one byte more than may be there.
core::Result<std::string> read_all(std::string const& name) {
    struct Close {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    std::unique_ptr<std::FILE, Close> opened;
    if (name != "-") {
        opened.reset(std::fopen(name.c_str(), "re"));
        if (!opened) {
            return core::fail(core::Error::CommonError, "{}: cannot be opened ({})", name,
                              std::generic_category().message(errno));
        }
    }
    auto* const file = name == "-" ? stdin : opened.get();
    std::string text(max_settings_file_size + 1, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file));
    if (std::ferror(file) != 0) {
        return core::fail(core::Error::CommonError, "{}: cannot be read ({})", name,
                          std::generic_category().message(errno));
    }
    return text;
}

core::Result<cfgdb::Transaction> transaction_of(Assignments const& assignments, bool merge) {
    cfgdb::Transaction transaction;
    if (!merge) {
        OUTCOME_TRY(transaction.reset("*"));
    }
    for (auto const& [path, value] : assignments) {
        if (cfgdb::find_setting(path) == nullptr) {
            OUTCOME_TRY(cfgdb::expand(path)); // names what is near
            return core::fail(core::Error::InvalidInputArg, "{}: a pattern; name one setting",
                              cfgdb::printable(path));
        }
        OUTCOME_TRY(transaction.set(path, value));
    }
    return transaction;
}

core::Result<int> import(Context const& context, Options const& options) {
    OUTCOME_TRY(text, read_all(options.file));
    auto const assignments = parse_settings_file(text);
    if (assignments.has_error()) {
        return core::fail(core::Error::InvalidInputArg, "{}: {}", options.file, text_of(assignments.error()));
    }
    OUTCOME_TRY(transaction, transaction_of(assignments.value(), options.merge));
    return change(transaction, context, options, options.changed_exit ? status_if_changed : 0);
}

} // namespace

Action import_command(Arguments& arguments) {
    auto const options = std::make_shared<Options>();
    arguments.add({.name = "FILE", .help = "The file; - is the standard input", .required = true},
                  options->file);
    arguments.add({"--merge", "Leave the settings that the file does not name as they are"}, options->merge);
    arguments.add({"--changed-exit", "Exit with status 2 if something was changed"}, options->changed_exit);
    add_change_options(arguments, *options);
    return [options](Context const& context) { return import(context, *options); };
}

} // namespace xpon::logctl
