#include "xpon/logger/logger.hpp"

namespace xpon::logger {

struct Logger::Category {};
struct Logger::LoggerContext::State {};

Logger::Logger(std::string const& /*category*/) {}
Logger::~Logger() = default;
Logger::LoggerContext::~LoggerContext() = default;

core::Result<std::unique_ptr<Logger::LoggerContext>>
Logger::create_context(std::filesystem::path const& /*config_file*/, std::string const& /*name*/,
                       std::uint16_t /*number*/) {
    return std::unique_ptr<LoggerContext>{};
}

bool Logger::is_enabled(core::LogLevel /*level*/) const {
    return false;
}

void Logger::log(core::LogLevel /*level*/, std::string_view /*text*/, std::source_location const& /*where*/) {
}

} // namespace xpon::logger
