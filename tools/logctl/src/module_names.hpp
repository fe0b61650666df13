#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "xpon/log_config/zlog_files/config_files.hpp"

namespace xpon::logctl {

/// The module's name in the paths of its settings, or "number N" for one outside the catalogue.
std::string module_name(std::uint32_t value);

/// The zlog file that this module reads; null if it reads none of its own.
log_config::ConfigFileEntry const* file_read_by(std::uint32_t module);

/// Where a zlog file of this name lies.
std::string zlog_path(std::string_view file);

} // namespace xpon::logctl
