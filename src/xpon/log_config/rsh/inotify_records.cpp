#include "xpon/log_config/rsh/inotify_records.hpp"

#include <cstring>

#include <sys/inotify.h>

namespace xpon::log_config {

std::optional<InotifyRecord> take_inotify_record(std::span<char const>& buffer) {
    inotify_event header;
    if (buffer.size() < sizeof header) {
        return std::nullopt;
    }
    std::memcpy(&header, buffer.data(), sizeof header);
    if (buffer.size() - sizeof header < header.len) {
        return std::nullopt;
    }
    auto const field = buffer.subspan(sizeof header, header.len);
    buffer = buffer.subspan(sizeof header + header.len);
    return InotifyRecord{header.mask, {field.data(), strnlen(field.data(), field.size())}, header.len != 0};
}

} // namespace xpon::log_config
