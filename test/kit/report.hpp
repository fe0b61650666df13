#pragma once

#include <cstdlib>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

namespace xpon::test {

/// Adds a line to the file that XPON_REPORT names, from which scripts/reliability makes docs/reliability.md:
/// what was done, how, and what was seen, with a tabulator between. A test that
/// has failed, or runs without the variable, adds nothing.
inline void report(std::string const& line) {
    if (char const* const path = std::getenv("XPON_REPORT");
        path != nullptr && !testing::Test::HasFailure()) {
        std::ofstream{path, std::ios::app} << line << '\n';
    }
}

} // namespace xpon::test
