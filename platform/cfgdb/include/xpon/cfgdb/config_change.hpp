#pragma once

#include <cstdint>

/// One changed field of the global logging configuration: 12 bytes.
struct Config_change {
    std::uint32_t field_id; ///< which field
    std::uint32_t row;      ///< 0, the only row of the global configuration
    std::uint32_t sequence; ///< the low 32 bits of the change's number in the journal
};
static_assert(sizeof(Config_change) == 12);
