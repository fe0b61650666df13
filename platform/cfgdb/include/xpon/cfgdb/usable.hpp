#pragma once

#include <optional>
#include <string>

#include "core/result.hpp"
#include "xpon/cfgdb/transaction.hpp"

namespace xpon::cfgdb {

/// Why a value cannot work though it may be stored, such as "224.0.0.1 is a multicast address"; nothing if it
/// can. An earlier release has stored such values, so they are readable, but nobody may set them.
std::optional<std::string> flaw_of(Setting const& setting, std::string const& value);

/// Fails with `InvalidInputArg` if the new value has such a flaw.
core::Result<void> check_usable(Change const& change);

} // namespace xpon::cfgdb
