#include "line_writer.hpp"

#include <algorithm>
#include <array>
#include <limits>
#include <mutex>
#include <vector>

#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <syslog.h>
#include <unistd.h>

namespace xpon::logger {

namespace {

/// zlog's levels as syslog priorities, the least severe first.
constexpr std::array<int, zlog_level_names.size()> priorities{
    LOG_DEBUG, LOG_INFO, LOG_NOTICE, LOG_WARNING, LOG_ERR, LOG_ALERT,
};

/// spdlog's own sink has fixed priorities, and its destructor calls closelog().
class SyslogSink : public spdlog::sinks::base_sink<std::mutex> {
  protected:
    void sink_it_(spdlog::details::log_msg const& message) override {
        spdlog::memory_buf_t line;
        formatter_->format(message, line);
        auto const length = std::min<std::size_t>(line.size(), std::numeric_limits<int>::max());
        ::syslog(LOG_LOCAL0 | priorities.at(static_cast<std::size_t>(message.level)), "%.*s",
                 static_cast<int>(length), line.data());
    }

    void flush_() override {}
};

} // namespace

std::shared_ptr<spdlog::logger> make_line_writer(std::string const& category, ZlogFormat const& format) {
    std::vector<spdlog::sink_ptr> sinks{std::make_shared<SyslogSink>()};
    if (::isatty(STDERR_FILENO) == 1) {
        sinks.push_back(std::make_shared<spdlog::sinks::stderr_sink_mt>());
    }
    auto writer = std::make_shared<spdlog::logger>(category, sinks.begin(), sinks.end());
    writer->set_formatter(format.clone());
    writer->set_level(spdlog::level::trace);
    writer->set_error_handler([](std::string const& /*reason*/) {});
    return writer;
}

} // namespace xpon::logger
