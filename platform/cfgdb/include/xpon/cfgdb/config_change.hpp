#pragma once

#include <cstdint>

/// One changed field of the global logging configuration: 12 bytes.
struct Config_change {
    std::uint32_t field_id; ///< which field
    std::uint32_t row;      ///< 0, the only row of the global configuration
    std::uint32_t sequence; ///< the low 32 bits of the change's number in the journal
};
static_assert(sizeof(Config_change) == 12);

namespace xpon::cfgdb {

/// The fields of the syslog records. Those of the modules' levels follow from 58 on.
enum SyslogField : std::uint32_t { file_field = 52, console_field, remote_field, kernel_field, rsh_field };

} // namespace xpon::cfgdb
