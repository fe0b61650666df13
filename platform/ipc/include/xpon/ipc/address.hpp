#pragma once

#include <cstdint>

namespace xpon::ipc {

/// The address of an endpoint: one 32-bit word.
struct Address {
    std::uint32_t value;

    bool operator==(Address const&) const = default;
};

/// As an endpoint's own address: pick an unused one.
inline constexpr Address any_address{0xFFFF};
/// As a destination: everybody on the bus.
inline constexpr Address everybody{0xFFFE};

} // namespace xpon::ipc
