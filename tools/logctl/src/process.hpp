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

/// The path of one of the system's own programs: in /usr/sbin, /usr/bin, /sbin or /bin, whatever PATH says,
/// so that root never runs what lies in somebody's working directory. Fails, saying that it is missing.
core::Result<std::string> find_program(std::string const& name);

/// Runs one of the system's own programs, no shell between, with those folders as PATH and nothing else in
/// its environment, and waits for its end. Fails if it is missing or cannot be run, or takes longer than
/// `limit`; then it is killed.
core::Result<Finished> run_program(std::vector<std::string> const& argv, std::string_view input = {},
                                   std::chrono::milliseconds limit = std::chrono::seconds{5});

} // namespace xpon::logctl
