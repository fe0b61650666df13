#include <algorithm>
#include <memory>

#include <fmt/format.h>

#include "commands/command.hpp"
#include "core/failure.hpp"
#include "module_names.hpp"
#include "output.hpp"
#include "process.hpp"
#include "wanted.hpp"
#include "xpon/cfgdb/nearest.hpp"
#include "xpon/cfgdb/printable.hpp"

namespace xpon::logctl {

namespace {

struct Options {
    std::string file;
    bool diff = false;
};

struct Preview {
    std::string path; ///< of the file on the disk
    std::string text;
};

constexpr std::string_view ending = ".conf";

core::ErrorPayload unknown(std::string const& name) {
    std::vector<std::string> names{"syslog-ng"};
    for (auto const& file : log_config::zlog_files) {
        names.emplace_back(file.name);
    }
    auto const near = cfgdb::nearest(name.ends_with(ending) ? name : name + std::string{ending}, names);
    return core::fail(core::Error::InvalidInputArg, "{}: no such output; {}", cfgdb::printable(name),
                      fmt::format("{}: {}", near.empty() ? "there are" : "nearest",
                                  fmt::join(near.empty() ? names : near, ", ")));
}

core::Result<Preview> make(std::string const& name, Context const& context) {
    auto const file = std::ranges::find_if(log_config::zlog_files, [&](auto const& entry) {
        return name == entry.name || name + std::string{ending} == entry.name;
    });
    bool const is_syslog_ng = name == "syslog-ng" || name == "syslog-ng.conf";
    if (!is_syslog_ng && file == log_config::zlog_files.end()) {
        return unknown(name);
    }
    OUTCOME_TRY(wanted, Wanted::open(context));
    if (is_syslog_ng) {
        OUTCOME_TRY(text, wanted.syslog_ng_text(shells_in(file_text(syslog_ng_conf).value_or(""))));
        return Preview{syslog_ng_conf, std::move(text)};
    }
    OUTCOME_TRY(text, wanted.zlog_text(*file));
    return Preview{zlog_path(file->name), std::move(text)};
}

core::Result<int> preview(Context const& context, Options const& options) {
    OUTCOME_TRY(made, make(options.file, context));
    if (!options.diff) {
        print(made.text);
        return 0;
    }
    std::error_code ignored;
    bool const there = std::filesystem::exists(made.path, ignored);
    OUTCOME_TRY(difference, run_program({"diff", "--unified", "--label", made.path, "--label", "wanted",
                                         there ? made.path : "/dev/null", "-"},
                                        made.text));
    if (difference.status > 1) {
        return core::fail(core::Error::CommonError, "cannot compare {} ({})", made.path,
                          cfgdb::printable(difference.err));
    }
    print(difference.out);
    return 0;
}

} // namespace

Action preview_command(Arguments& arguments) {
    auto const options = std::make_shared<Options>();
    arguments.add({.name = "FILE",
                   .help = "A zlog file such as SNMP.conf, or syslog-ng, with the terminals that it has an "
                           "output for now",
                   .required = true},
                  options->file);
    arguments.add({"--diff", "Show how it differs from the file on the disk"}, options->diff);
    return [options](Context const& context) { return preview(context, *options); };
}

} // namespace xpon::logctl
