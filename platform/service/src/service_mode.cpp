#include "xpon/service/service_mode.hpp"

#include "core/failure.hpp"

namespace xpon::service {

namespace {

unsigned char bits(ServiceMode mode) {
    return static_cast<unsigned char>(mode);
}

} // namespace

unsigned char operator|(ServiceMode left, ServiceMode right) {
    return bits(left) | right;
}

unsigned char operator|(unsigned char mask, ServiceMode mode) {
    return static_cast<unsigned char>(mask | bits(mode));
}

std::string to_string(ServiceMode const& mode) {
    switch (mode) {
    case ServiceMode::Init:
        return "init";
    case ServiceMode::Master:
        return "master";
    case ServiceMode::Standby:
        return "standby";
    case ServiceMode::Standalone:
        return "standalone";
    }
    return fmt::format("unknown (0x{:02x})", bits(mode));
}

core::Result<void> is_allowed_mode(ServiceMode const& mode, unsigned char const& mask) {
    auto const wanted = bits(mode);
    bool const in_mask = wanted != 0 && (mask & wanted) == wanted;
    if (mode == ServiceMode::Standalone || in_mask) {
        return core::success();
    }
    return core::fail(core::Error::InvalidState, "Mode {} (0x{:02x}) is not allowed by the mask 0x{:02x}",
                      to_string(mode), wanted, mask);
}

} // namespace xpon::service
