#pragma once

#include <memory>
#include <string>

#include <spdlog/logger.h>

#include "zlog_format.hpp"

namespace xpon::logger {

/// Writes lines of one category and format to syslog(3), and to standard error where that is a terminal at
/// the time of the call. What cannot be written is lost without a word.
std::shared_ptr<spdlog::logger> make_line_writer(std::string const& category, ZlogFormat const& format);

} // namespace xpon::logger
