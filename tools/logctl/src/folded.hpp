#pragma once

#include <string>
#include <vector>

#include "output.hpp"
#include "xpon/cfgdb/transaction.hpp"

namespace xpon::logctl {

/// What is said of one setting.
struct Said {
    std::string path;
    std::string text;
};

/// The same of several settings in one: "module.fsm_pon.ont.3.1-16,18-256" for numbers, "module.snmp.*" where
/// it is said of everything below. The order is that of the first of each.
std::vector<Said> folded(std::vector<Said> const& all);

/// "old -> new"; equal values have only left a trial.
std::string change_text(std::string const& old_value, std::string const& new_value);

/// "path: old -> new", a line each, folded; a path that does not fit is shortened.
std::string folded_lines(std::vector<cfgdb::Change> const& changes, std::size_t width = Screen::endless);

} // namespace xpon::logctl
