#pragma once

#include <cstdint>

namespace xpon::service {

/// Events from the bus that the launcher handles, whatever their payload.
inline constexpr std::uint16_t master_change_event = 12100;
inline constexpr std::uint16_t sync_event = 12101;

} // namespace xpon::service
