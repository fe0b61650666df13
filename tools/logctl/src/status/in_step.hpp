#pragma once

#include <chrono>
#include <cstdint>
#include <span>

#include "commands/command.hpp"
#include "status/report.hpp"

namespace xpon::logctl {

/// Waits until every output that holds settings of these fields surely is in step. Whether all of them are;
/// what is not when the time is over, or waits for a restart, is told with its reason. What the caller may
/// not see is not sure. Fails if the settings cannot be read.
core::Result<bool> wait_until_in_step(Context const& context, std::span<std::uint32_t const> fields,
                                      std::chrono::duration<double> limit);

} // namespace xpon::logctl
