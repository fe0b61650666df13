// The walk through what one read of an inotify descriptor delivered.
#include "fuzz/fuzz.hpp"
#include "xpon/log_config/rsh/inotify_records.hpp"

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    using xpon::fuzz::require;
    constexpr std::size_t smallest_record = 16;
    std::span<char const> const all{reinterpret_cast<char const*>(data), size};
    auto rest = all;
    while (!rest.empty()) {
        auto const before = rest;
        auto const record = xpon::log_config::take_inotify_record(rest);
        if (!record) {
            break;
        }
        require(rest.size() + smallest_record <= before.size(), "a record takes at least its header");
        require(rest.data() + rest.size() == all.data() + all.size(),
                "what is left is the end of the buffer");
        require(record->name.empty() || (record->name.data() >= before.data() &&
                                         record->name.data() + record->name.size() <= rest.data()),
                "the name lies in the record");
        require(record->name.find('\0') == std::string_view::npos, "the name ends at its first zero");
        require(record->name.empty() || record->has_name, "a name comes from a field");
    }
    return 0;
}
