#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "core/result.hpp"

namespace xpon::logctl {

/// The longest that a change may last before it ends by itself.
inline constexpr std::int64_t longest_trial = std::int64_t{30} * 24 * 60 * 60;

/// The seconds that a text such as 90s, 30m, 2h or 7d stands for, rounded up. Fails with `InvalidInputArg`
/// for what is none, for 0 and for more than `longest`, which are whole days; the text belongs to `argument`.
core::Result<std::int64_t> seconds_in(std::string_view argument, std::string_view text,
                                      std::int64_t longest = longest_trial);

/// A time as the two largest units that it has: "29 d 3 h", "9 min 59 s", "7 s".
std::string duration_text(std::int64_t seconds);

} // namespace xpon::logctl
