#include "xpon/ipc/message.hpp"

#include <algorithm>
#include <cstring>

namespace xpon::ipc {

std::vector<std::byte> encode(Header const& header, std::span<std::byte const> payload) {
    std::vector<std::byte> frame(sizeof header + payload.size());
    std::memcpy(frame.data(), &header, sizeof header);
    std::ranges::copy(payload, frame.begin() + sizeof header);
    return frame;
}

std::optional<Message> decode(std::span<std::byte const> frame) {
    if (frame.size() < sizeof(Header)) {
        return std::nullopt;
    }
    Message message;
    std::memcpy(&message.header, frame.data(), sizeof message.header);
    auto const payload = frame.subspan(sizeof message.header);
    message.payload.assign(payload.begin(), payload.end());
    return message;
}

} // namespace xpon::ipc
