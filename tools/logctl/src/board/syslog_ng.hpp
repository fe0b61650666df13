#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "core/result.hpp"

namespace xpon::logctl {

/// When an answer is no longer waited for.
using Deadline = std::chrono::steady_clock::time_point;

/// What syslog-ng answers on its control socket to "config" or "stats". Fails with `NoAccess` if the caller
/// may not use the socket, else with `CommonError`: syslog-ng does not run, or does not answer in time.
core::Result<std::string> ask_syslog_ng(std::string const& what, Deadline end);

/// Messages of one destination since syslog-ng started. Files have the first counter only.
struct Counters {
    std::optional<std::uint64_t> processed;
    std::optional<std::uint64_t> written;
    std::optional<std::uint64_t> queued;
    std::optional<std::uint64_t> dropped;
};

/// By the name of the destination or source in syslog-ng.conf, of a receiver by `counters_of`. Those that are
/// gone are left out.
using Statistics = std::map<std::string, Counters, std::less<>>;

/// How syslog-ng calls the counters of a receiver of syslog-ng.conf: some are of the name, some of the address,
/// and those of an address that it had before stay.
std::string counters_of(std::string_view receiver, std::string_view address, std::string_view port);

/// The counters in an answer to "stats".
Statistics statistics_in(std::string const& answer);

} // namespace xpon::logctl
