#pragma once

#include <string>
#include <system_error>

namespace xpon::core {

/// What an error number of the system means, such as "No such file or directory". The only place that asks.
inline std::string reason_of(int error_number) {
    return std::generic_category().message(error_number);
}

} // namespace xpon::core
