// What an operator may write as a path or pattern.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "xpon/cfgdb/settings.hpp"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string_view const text{reinterpret_cast<char const*>(data), size};
    auto const found = xpon::cfgdb::expand(text);
    static constexpr auto says_why = [](auto const& info) { return info && !info->text().empty(); };
    bool const sound = found.has_value() ? !found.value().empty() : says_why(found.error().info);
    if (!sound) {
        std::abort();
    }
    return 0;
}
