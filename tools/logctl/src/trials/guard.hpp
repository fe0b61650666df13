#pragma once

#include <cstdint>

#include "commands/command.hpp"

namespace xpon::logctl {

/// The process in the background: waits for that second of this boot and ends every trial whose time is over
/// then, as often as it takes. Ends when no trial is left that ends then. One may still come, even late, until
/// a byte on standard input says that this is decided; its end alone means that who was to decide has died.
core::Result<int> guard_trial(Context const& context, std::int64_t until);

} // namespace xpon::logctl
