#pragma once

#include <cstdlib>
#include <fstream>
#include <string>

namespace xpon::test {

/// Adds a line to the file that XPON_REPORT names, from which scripts/reliability makes docs/reliability.md:
/// what was done, how, and what was seen, with a tabulator between. Without the variable nothing happens.
inline void report(std::string const& line) {
    if (char const* const path = std::getenv("XPON_REPORT")) {
        std::ofstream{path, std::ios::app} << line << '\n';
    }
}

} // namespace xpon::test
