#pragma once

#include <string>

namespace xpon::logctl {

struct DryRun {
    enum class Outcome { Loads, Refused, NotDone } outcome;
    std::string reason; ///< what syslog-ng said, or why it was not tried
};

/// Starts a syslog-ng of its own with this configuration and ends it again, in namespaces where it sees the
/// system's programs and nothing else: no network, no journal, no log, no terminal of this machine. Only a
/// start proves a text: the syntax check passes undefined filters and equal receivers.
DryRun try_syslog_ng(std::string const& text);

} // namespace xpon::logctl
