#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace xpon::log_config {

struct InotifyRecord {
    std::uint32_t mask;
    std::string_view name; ///< up to its first zero or its whole field; empty for the directory itself
    bool has_name;         ///< the record's name field has a length
};

/// Takes the first record off what one read of an inotify descriptor delivered; nothing when no whole record
/// is left. `name` points into the buffer. Needs no alignment.
std::optional<InotifyRecord> take_inotify_record(std::span<char const>& buffer);

} // namespace xpon::log_config
