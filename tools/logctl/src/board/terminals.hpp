#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "board/processes.hpp"
#include "board/syslog_ng.hpp"

namespace xpon::logctl {

enum class TerminalState {
    Open,      ///< there, but syslog-ng has no output for it
    Receiving, ///< gets what is logged
    Stalled,   ///< takes no more, or syslog-ng waits for it in vain
};

struct Terminal {
    unsigned number;
    TerminalState state;
    std::uint64_t messages; ///< that syslog-ng has sent there since its last start or since it opened
};

/// The terminals, from the names in /dev/pts and syslog-ng's statistics; none is opened. Whether one is
/// stalled is seen at syslog-ng's own descriptors, which takes the permission to trace it.
std::vector<Terminal> terminals(std::optional<Process> const& syslog_ng, Statistics const& statistics,
                                Deadline end);

} // namespace xpon::logctl
