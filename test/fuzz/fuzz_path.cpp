// What an operator may write as a path or pattern.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "xpon/cfgdb/settings.hpp"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string_view const text{reinterpret_cast<char const*>(data), size};
    auto const found = xpon::cfgdb::expand(text);
    bool const sound = found.has_value() ? !found.value().empty()
                                         : found.error().info && !found.error().info->text().empty();
    if (!sound) {
        std::abort();
    }
    return 0;
}
