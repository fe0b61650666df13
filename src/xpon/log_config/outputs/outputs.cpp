#include "xpon/log_config/outputs/outputs.hpp"

#include <algorithm>
#include <array>

#include <fmt/format.h>

#include "core/failure.hpp"
#include "xpon/log_config/kernel/kernel_configurator.hpp"
#include "xpon/log_config/outputs/read_syslog_settings.hpp"
#include "xpon/log_config/paths.hpp"
#include "xpon/log_config/zlog/zlog_config_generator.hpp"
#include "xpon/log_config/zlog/zlog_text.hpp"
#include "xpon/log_config/zlog_files/module_fields.hpp"

namespace xpon::log_config {

namespace {

constexpr std::string_view ending = ".conf";

std::array<Output, output_count> make_outputs() {
    std::array<Output, output_count> all{
        {{"syslog-ng", syslog_ng_conf, std::nullopt, cfgdb::file_field, false, nullptr},
         {"kernel", printk, std::nullopt, cfgdb::kernel_field, false, nullptr}}};
    std::ranges::transform(zlog_files, all.begin() + 2, [](ConfigFileEntry const& file) {
        auto const* const stored = find_field_of(file.module);
        bool const at_start_only = !reaches_its_file(file.module);
        return Output{file.name,     zlog_folder + std::string{file.name},
                      file.module,   stored == nullptr || at_start_only ? 0 : stored->field_id,
                      at_start_only, &file};
    });
    return all;
}

Result<void> check(int status) {
    if (status != 0) {
        return core::fail(core::Error::ErrorCApi, "a syslog record cannot be read");
    }
    return core::success();
}

Result<std::string> kernel_text(void const* db) {
    SyslogKernelDest dest{};
    OUTCOME_TRY(check(getRunDb_CommonGCfg_logging_syslog_kernel(db, &dest, global_row)));
    return fmt::format("{}\n", kernel_level(dest));
}

} // namespace

std::span<Output const, output_count> outputs() {
    static auto const all = make_outputs();
    return all;
}

Output const& syslog_ng_output() {
    return outputs()[0];
}

Output const& kernel_output() {
    return outputs()[1];
}

Output const* find_output(std::string_view name) {
    auto const stem = [](std::string_view text) {
        return text.ends_with(ending) ? text.substr(0, text.size() - ending.size()) : text;
    };
    auto const all = outputs();
    auto const found =
        std::ranges::find(all, stem(name), [&](auto const& output) { return stem(output.name); });
    return found == all.end() ? nullptr : &*found;
}

Result<LogModules> read_modules(ConfigFileEntry const& file,
                                std::shared_ptr<cfgdb::CfgDbWrapper> const& cfgdb) {
    LogModules modules;
    auto const generator = std::make_shared<ZlogConfigGenerator>();
    OUTCOME_TRY(core::caught([&] { return file.add_modules(modules, cfgdb, generator); }));
    return modules;
}

Result<std::string> wanted_text(Output const& output, std::shared_ptr<cfgdb::CfgDbWrapper> const& cfgdb,
                                OpenShells const& shells) {
    if (output.zlog_file != nullptr) {
        OUTCOME_TRY(modules, read_modules(*output.zlog_file, cfgdb));
        return zlog_text(ZlogConfigGenerator{}, modules);
    }
    if (&output == &kernel_output()) {
        return kernel_text(cfgdb->db());
    }
    OUTCOME_TRY(settings, read_syslog_settings(cfgdb->db(), check));
    return syslog_ng_text(settings, shells);
}

bool holds(Output const& output, std::string_view content, std::string_view wanted) {
    if (&output == &kernel_output()) {
        auto const end = content.find_first_of("\t\n");
        return content.substr(0, end) == wanted.substr(0, wanted.size() - 1);
    }
    return content == wanted;
}

OpenShells shells_in(std::string_view syslog_ng_conf) {
    OpenShells shells{};
    for (std::size_t number = 0; number < shells.size(); ++number) {
        shells.at(number) =
            syslog_ng_conf.find(fmt::format("destination d_rsh_{} {{", number)) != std::string_view::npos;
    }
    return shells;
}

} // namespace xpon::log_config
