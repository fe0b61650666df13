#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "xpon/ipc/address.hpp"

namespace xpon::ipc {

/// The first 8 bytes of every message, in the machine's own byte order.
struct Header {
    Address destination;
    std::uint16_t event; ///< what happened
    std::uint16_t reply; ///< the event of an answer; 0 if none is expected

    bool operator==(Header const&) const = default;
};
static_assert(sizeof(Header) == 8);

struct Message {
    Header header;
    std::vector<std::byte> payload;

    bool operator==(Message const&) const = default;
};

/// The longest frame allowed; the broker disconnects a peer that sends a longer one.
inline constexpr std::size_t max_frame_size = 65536;
inline constexpr std::size_t max_payload_size = max_frame_size - sizeof(Header);

/// The frame of a message: header, then payload.
std::vector<std::byte> encode(Header const& header, std::span<std::byte const> payload);

/// The message in a frame, or nothing if the frame is shorter than a header.
std::optional<Message> decode(std::span<std::byte const> frame);

} // namespace xpon::ipc
