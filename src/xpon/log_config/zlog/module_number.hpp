#pragma once

#include <cstdint>

#include "xpon/cfgdb/modules.hpp"

namespace xpon::log_config {

// The enumeration belongs to the configuration library. It may be a plain C one, which cannot be initialised
// from a number and whose size the compiler chooses.

constexpr Modules_names module_of(std::uint32_t number) {
    return static_cast<Modules_names>(number);
}

constexpr std::uint32_t number_of(Modules_names module) {
    return static_cast<std::uint32_t>(module);
}

} // namespace xpon::log_config
