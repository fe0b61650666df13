#include <memory>

#include <fmt/format.h>

#include "commands/command.hpp"
#include "core/failure.hpp"
#include "output.hpp"
#include "process.hpp"
#include "wanted.hpp"
#include "xpon/cfgdb/printable.hpp"

namespace xpon::logctl {

namespace {

struct Options {
    std::string file;
    bool diff = false;
};

core::Result<int> preview(Context const& context, Options const& options) {
    OUTCOME_TRY(output, output_of_name(options.file));
    OUTCOME_TRY(wanted, Wanted::open(context));
    OUTCOME_TRY(text, wanted.text(*output));
    if (!options.diff) {
        print(text);
        return 0;
    }
    auto const& path = output->path;
    std::error_code ignored;
    bool const there = std::filesystem::exists(path, ignored);
    OUTCOME_TRY(difference, run_program({"diff", "--unified", "--label", path, "--label", "wanted",
                                         there ? path : "/dev/null", "-"},
                                        text));
    if (difference.status > 1) {
        return core::fail(core::Error::CommonError, "cannot compare {} ({})", path,
                          cfgdb::printable(difference.err));
    }
    print(difference.out);
    return 0;
}

} // namespace

Action preview_command(Arguments& arguments) {
    auto const options = std::make_shared<Options>();
    arguments.add({.name = "FILE",
                   .help = "A zlog file such as SNMP.conf, kernel, or syslog-ng (with the terminals that "
                           "its file on disk has now)",
                   .required = true},
                  options->file);
    arguments.add({"--diff", "Compare it with the file on disk"}, options->diff);
    return [options](Context const& context) { return preview(context, *options); };
}

} // namespace xpon::logctl
