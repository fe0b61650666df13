#include "module_names.hpp"

#include <algorithm>

#include <fmt/format.h>

#include "xpon/cfgdb/module_table.hpp"
#include "xpon/log_config/zlog_files/generate_zlog_config_files.hpp"

namespace xpon::logctl {

std::string module_name(std::uint32_t value) {
    auto const* const module = cfgdb::find_module(Modules_names{value});
    return module != nullptr ? std::string{module->name} : fmt::format("number {}", value);
}

log_config::ConfigFileEntry const* file_read_by(std::uint32_t module) {
    auto const* const entry = std::ranges::find(log_config::zlog_files, Modules_names{module},
                                                &log_config::ConfigFileEntry::module);
    return entry == log_config::zlog_files.end() ? nullptr : entry;
}

std::string zlog_path(std::string_view file) {
    return fmt::format("{}{}", log_config::zlog_folder, file);
}

} // namespace xpon::logctl
