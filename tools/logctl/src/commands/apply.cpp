#include <memory>

#include <fmt/format.h>

#include "commands/change.hpp"
#include "core/failure.hpp"
#include "output.hpp"
#include "wanted.hpp"

namespace xpon::logctl {

namespace {

struct Options : WaitOptions {
    std::vector<std::string> names;
};

/// Of the outputs of these names, or of all that a running daemon writes.
core::Result<std::vector<std::uint32_t>> fields_of(std::vector<std::string> const& names) {
    std::vector<std::uint32_t> fields;
    for (auto const& name : names) {
        OUTCOME_TRY(output, output_of_name(name));
        if (output->field == 0) {
            return core::fail(core::Error::InvalidInputArg,
                              "{}: the daemon writes it when it starts, not before; run: systemctl restart "
                              "log-config",
                              output->name);
        }
        fields.push_back(output->field);
    }
    if (names.empty()) {
        for (auto const& output : log_config::outputs()) {
            if (output.field != 0) {
                fields.push_back(output.field);
            }
        }
    }
    return fields;
}

core::Result<int> apply(Context const& context, Options const& options) {
    OUTCOME_TRY(fields, fields_of(options.names));
    OUTCOME_TRY(cfgdb::deliver_again(fields, context.database));
    return follow(fields, true, context, options);
}

} // namespace

Action apply_command(Arguments& arguments) {
    auto const options = std::make_shared<Options>();
    arguments.add({"OUTPUT",
                   "Outputs, such as SNMP.conf, syslog-ng or kernel; without one, all that the daemon "
                   "writes while it runs"},
                  options->names);
    add_wait_option(arguments, *options);
    return [options](Context const& context) { return apply(context, *options); };
}

} // namespace xpon::logctl
