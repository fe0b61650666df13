#pragma once

#include <vector>

#include <nlohmann/json.hpp>

#include "status/report.hpp"

namespace xpon::logctl {

/// Adds the reason and the remedy, each empty or joined by "; ".
nlohmann::ordered_json with_notes(nlohmann::ordered_json object, std::vector<Note> const& notes);

} // namespace xpon::logctl
