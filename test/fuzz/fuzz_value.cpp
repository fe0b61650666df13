// What an operator may write as a value, for a setting of each kind: the first byte chooses it. Whatever is
// accepted must be unable to leave its place in the generated configuration.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "xpon/cfgdb/settings.hpp"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    constexpr std::string_view paths[] = {"syslog.file.level", "syslog.file.path", "syslog.file.size",
                                          "syslog.remote.1.address", "syslog.remote.1.port"};
    if (size == 0) {
        return 0;
    }
    auto const& setting = *xpon::cfgdb::find_setting(paths[data[0] % std::size(paths)]);
    auto const value = xpon::cfgdb::parse(setting, {reinterpret_cast<char const*>(data) + 1, size - 1});
    if (value.has_error()) {
        return 0;
    }
    auto const text = xpon::cfgdb::to_text(setting.kind, value.value());
    bool const harmless = std::ranges::all_of(text, [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
               c == '/' || c == '_' || c == '-';
    });
    auto const again = xpon::cfgdb::parse(setting, text);
    if (!harmless || text.size() > 31 || !xpon::cfgdb::is_allowed(setting.kind, value.value()) ||
        !again.has_value() || again.value() != value.value()) {
        std::abort();
    }
    return 0;
}
