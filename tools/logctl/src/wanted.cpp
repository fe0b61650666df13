#include "wanted.hpp"

#include <algorithm>
#include <set>

#include <fmt/format.h>

#include "core/failure.hpp"
#include "file_text.hpp"
#include "xpon/cfgdb/nearest.hpp"
#include "xpon/cfgdb/printable.hpp"
#include "xpon/log_config/outputs/read_syslog_settings.hpp"
#include "xpon/log_config/zlog_files/module_fields.hpp"

namespace xpon::logctl {

using core::Error;
using core::fail;
using log_config::Output;

core::Result<Output const*> output_of_name(std::string const& name) {
    if (auto const* const output = log_config::find_output(name)) {
        return output;
    }
    std::vector<std::string> names;
    for (auto const& output : log_config::outputs()) {
        names.emplace_back(output.name);
    }
    constexpr std::string_view ending = ".conf";
    auto const near = cfgdb::nearest(name.ends_with(ending) ? name : name + std::string{ending}, names);
    return fail(Error::InvalidInputArg, "{}: no such output; {}", cfgdb::printable(name),
                near.empty() ? fmt::format("there are: {}", fmt::join(names, ", "))
                             : cfgdb::did_you_mean(near));
}

core::Result<Wanted> Wanted::open(Context const& context) {
    try {
        return Wanted{context.database,
                      std::make_shared<cfgdb::CfgDbWrapper>("logctl", context.database, cfgdb::ReadOnly{})};
    } catch (std::exception const& exception) {
        return fail(Error::CommonError, "{}", exception.what());
    }
}

core::Result<std::string> Wanted::text(Output const& output) const {
    auto const& syslog_ng = log_config::syslog_ng_output();
    auto const shells = &output == &syslog_ng ? log_config::shells_in(file_text(syslog_ng.path).value_or(""))
                                              : log_config::OpenShells{};
    auto wanted = log_config::wanted_text(output, database, shells);
    return wanted.has_value() ? std::move(wanted) : unreadable(output);
}

core::Result<SyslogSettings> Wanted::syslog_settings() const {
    auto settings = log_config::read_syslog_settings(database->db(), [](int status) -> core::Result<void> {
        if (status != 0) {
            return fail(Error::ErrorCApi, "");
        }
        return core::success();
    });
    return settings.has_value() ? std::move(settings) : unreadable(log_config::syslog_ng_output());
}

core::Result<Outputs> Wanted::files_with(Modules_names module) const {
    Outputs files;
    for (auto const& output : log_config::outputs().subspan(2)) {
        auto const modules = log_config::read_modules(*output.zlog_file, database);
        if (modules.has_error()) {
            return unreadable(output);
        }
        if (modules.value().contains(module)) {
            files.push_back(&output);
        }
    }
    return files;
}

core::Result<Outputs> Wanted::outputs_with(std::span<std::uint32_t const> fields) const {
    std::set<Output const*> found; // in the order of their table
    for (auto const field : fields) {
        if (field == cfgdb::kernel_field) {
            found.insert(&log_config::kernel_output());
        } else if (log_config::is_syslog_field(field)) {
            found.insert(&log_config::syslog_ng_output());
        } else if (auto const* const of_module = log_config::find_module_field(field)) {
            OUTCOME_TRY(files, files_with(of_module->module));
            found.insert(files.begin(), files.end());
        }
    }
    return Outputs{found.begin(), found.end()};
}

std::vector<cfgdb::StoredSetting> Wanted::not_allowed(Output const& output) const {
    auto stored = cfgdb::stored_settings(folder);
    if (stored.has_error()) {
        return {};
    }
    std::string_view const group = output.zlog_file == nullptr ? "syslog." : "module.";
    std::erase_if(stored.value(), [group](cfgdb::StoredSetting const& row) {
        return row.setting == nullptr || row.allowed || !row.path.starts_with(group);
    });
    return std::move(stored).value();
}

core::ErrorPayload Wanted::unreadable(Output const& output) const {
    std::vector<std::string> wrong;
    for (auto const& row : not_allowed(output)) {
        wrong.push_back(fmt::format("{}: {}", row.path, cfgdb::wrongly_stored(row.value, row.setting->kind)));
    }
    constexpr std::size_t enough = 3;
    wrong.resize(std::min(wrong.size(), enough));
    return fail(Error::InvalidState, "{}",
                wrong.empty() ? "the stored settings cannot be used; to see why, run: logctl check"
                              : fmt::format("{}", fmt::join(wrong, "; ")));
}

} // namespace xpon::logctl
