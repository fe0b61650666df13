#pragma once

#include <string>

#include "xpon/log_config/zlog/i_log_config_generator.hpp"
#include "xpon/log_config/zlog/i_log_module.hpp"

namespace xpon::log_config {

/// The whole text of a zlog file: the header, then the rules of its modules in ascending order.
std::string zlog_text(ILogConfigGenerator const& generator, LogModules const& modules);

} // namespace xpon::log_config
