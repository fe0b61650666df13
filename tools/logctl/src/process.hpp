#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "core/result.hpp"

namespace xpon::logctl {

/// How a program ended, and what it wrote.
struct Finished {
    int status; ///< 128 + n after death by signal n
    std::string out;
    std::string err;
};

/// Runs a program, no shell between, and waits for its end. It is searched for in PATH and in the folders of
/// the system's own programs. Fails if it cannot be run, or takes longer than `limit`; then it is killed.
core::Result<Finished> run_program(std::vector<std::string> const& argv, std::string_view input = {},
                                   std::chrono::milliseconds limit = std::chrono::seconds{5});

} // namespace xpon::logctl
