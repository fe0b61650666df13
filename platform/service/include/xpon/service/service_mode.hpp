#pragma once

#include <cstdint>
#include <string>

#include "core/result.hpp"

namespace xpon::service {

/// The redundancy role of a service. The values are flags of an 8-bit mask.
enum class ServiceMode : std::uint8_t {
    Init = 0x01,       ///< not running yet
    Master = 0x02,     ///< the active controller
    Standby = 0x04,    ///< the redundant controller
    Standalone = 0x10, ///< no redundancy at all
};

unsigned char operator|(ServiceMode left, ServiceMode right);
unsigned char operator|(unsigned char mask, ServiceMode mode);

/// "init", "master", "standby", "standalone", or "unknown (0x..)".
std::string to_string(ServiceMode const& mode);

/// Success if the mask allows the mode, otherwise `InvalidState` naming both. Standalone is always allowed,
/// because it has no redundancy role to check. Any other mode needs its bit in the mask.
core::Result<void> is_allowed_mode(ServiceMode const& mode, unsigned char const& mask);

} // namespace xpon::service
