#pragma once

namespace xpon::log_config {

/// The key of the single row of the global logging configuration.
inline constexpr unsigned short global_row[3]{};

} // namespace xpon::log_config
