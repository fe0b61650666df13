#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace xpon::log_config {

struct InotifyRecord {
    std::uint32_t mask;
    std::string_view name; ///< up to the first NUL or the end of the field; empty for the directory itself
    bool has_name;         ///< the record has a name field, even if the name in it is empty
};

/// Removes the first record from the data of one inotify read; nothing if no whole record is left. `name`
/// points into the buffer. Needs no alignment.
std::optional<InotifyRecord> take_inotify_record(std::span<char const>& buffer);

} // namespace xpon::log_config
