#pragma once

#include <array>
#include <string>
#include <string_view>

namespace xpon::logger {

/// The beginning of every zlog file of this system.
inline std::string const zlog_header = R"([global]
default format = "%d(%d %b %T) %-6V %-14.14c - %m [%f:%U:%L]%n"

[formats]
for_info = "%d(%d %b %T) %-6V %-14.14c - %m%n"
for_fatal = "%d(%d %b %T) CRIT   %-14.14c - %m [%f:%U:%L]%n"

[rules]
)";

/// The rules of one category in which the `least_severe` + 1 most severe levels are on.
inline std::string zlog_rules(std::string_view category, std::size_t least_severe) {
    static constexpr std::array<char const*, 6> suffixes{
        ".=FATAL >syslog, LOG_LOCAL0; for_fatal\n", ".=ERROR >syslog, LOG_LOCAL0;\n",
        ".=WARN >syslog, LOG_LOCAL0; for_info\n",   ".=NOTICE >syslog, LOG_LOCAL0; for_info\n",
        ".=INFO >syslog, LOG_LOCAL0; for_info\n",   ".=DEBUG >syslog, LOG_LOCAL0;\n",
    };
    std::string rules;
    for (std::size_t level = 0; level <= least_severe; ++level) {
        rules.append(category).append(suffixes.at(level));
    }
    return rules;
}

} // namespace xpon::logger
