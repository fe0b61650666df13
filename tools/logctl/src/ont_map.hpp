#pragma once

#include <string>

#include "stored.hpp"

namespace xpon::logctl {

/// The levels of all ONTs as a picture, a letter each: a line for a port whose ONTs have one level, else as
/// many as it takes, none wider than `width`.
std::string ont_map(StoredValues const& stored, std::size_t width, bool coloured);

} // namespace xpon::logctl
