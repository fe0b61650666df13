#include "xpon/log_config/zlog/zlog_config_generator.hpp"

#include <algorithm>
#include <array>
#include <span>

namespace xpon::log_config {

namespace {

constexpr std::string_view header = R"([global]
default format = "%d(%d %b %T) %-6V %-14.14c - %m [%f:%U:%L]%n"

[formats]
for_info = "%d(%d %b %T) %-6V %-14.14c - %m%n"
for_fatal = "%d(%d %b %T) CRIT   %-14.14c - %m [%f:%U:%L]%n"

[rules]
)";
static_assert(header.size() == 201);

// By level number. ERROR and DEBUG name no format: the default one carries the position in the source.
constexpr std::array<std::string_view, 6> ZLOG_LEVEL_TO_STRING_TABLE{
    ".=FATAL >syslog, LOG_LOCAL0; for_fatal\n", ".=ERROR >syslog, LOG_LOCAL0;\n",
    ".=WARN >syslog, LOG_LOCAL0; for_info\n",   ".=NOTICE >syslog, LOG_LOCAL0; for_info\n",
    ".=INFO >syslog, LOG_LOCAL0; for_info\n",   ".=DEBUG >syslog, LOG_LOCAL0;\n",
};

} // namespace

std::string ZlogConfigGenerator::generate(std::string_view category, unsigned short level) {
    auto const count = std::min<std::size_t>(level + 1U, ZLOG_LEVEL_TO_STRING_TABLE.size());
    auto const rules = std::span{ZLOG_LEVEL_TO_STRING_TABLE}.first(count);
    std::size_t size = 0;
    for (auto const rule : rules) {
        size += category.size() + rule.size();
    }
    std::string text(size, '\0');
    for (auto end = text.begin(); auto const rule : rules) {
        end = std::ranges::copy(category, end).out;
        end = std::ranges::copy(rule, end).out;
    }
    return text;
}

std::string_view ZlogConfigGenerator::get_header() const {
    return header;
}

} // namespace xpon::log_config
