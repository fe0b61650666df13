#pragma once

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "commands/command.hpp"
#include "status/report.hpp"

namespace xpon::logctl {

/// As syslog numbers them.
inline constexpr std::array<std::string_view, 8> severities{"emerg",   "alert",  "crit", "err",
                                                            "warning", "notice", "info", "debug"};

/// What became of a message at one place.
enum class Arrival {
    Filtered,   ///< its level does not let it pass, and it did not come
    Seen,       ///< read back there
    Sent,       ///< handed over, as syslog-ng counts it; for UDP nobody knows more
    Queued,     ///< syslog-ng keeps it
    Refused,    ///< sent, and nobody took it
    Dropped,    ///< thrown away
    Missing,    ///< should have come
    Unexpected, ///< came, though its level does not let it pass
    Unknown,    ///< cannot be told
};

std::string_view name_of(Arrival arrival);

/// Whether it is as the settings say.
inline bool is_right(Arrival arrival) {
    return arrival == Arrival::Filtered || arrival == Arrival::Seen || arrival == Arrival::Sent;
}

/// Where messages should arrive, and what did.
struct ProbedPlace {
    std::string name;
    std::string target;
    std::array<Arrival, severities.size()> arrivals; ///< by severity
    std::vector<Note> notes;

    bool is_right() const { return std::ranges::all_of(arrivals, logctl::is_right); }
};

struct ProbeResult {
    std::string token;    ///< in every message
    std::size_t messages; ///< that were logged
    std::vector<ProbedPlace> places;

    bool is_right() const { return std::ranges::all_of(places, &ProbedPlace::is_right); }
};

/// Logs a message of each severity and sees what becomes of it in the journal and at every destination. Takes
/// a second where all is well. Fails if the caller is not root, syslog-ng does not take messages, or the
/// settings cannot be read.
core::Result<ProbeResult> probe(Context const& context);

} // namespace xpon::logctl
