#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "core/result.hpp"
#include "xpon/ipc/file_events.hpp"

namespace xpon::logctl {

struct Process {
    int pid;
    std::int64_t since; ///< seconds since the epoch
};

/// The oldest process of this name; nothing if none runs.
std::optional<Process> find_process(std::string const& name);

/// The text of the configuration that syslog-ng has loaded. Fails if it does not run or does not answer.
core::Result<std::string> loaded_syslog_ng_conf();

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

/// The terminals, from the names in /dev/pts and what syslog-ng says of them; none is opened. Whether one is
/// stalled is seen at syslog-ng's own descriptors, which takes the permission to trace it.
std::vector<Terminal> terminals(std::optional<Process> const& syslog_ng);

/// The last answer of each module, by its value, as the broker remembers them. Fails if there is no broker or
/// it does not answer.
core::Result<std::map<std::uint32_t, ipc::LastAnswer>> last_answers();

} // namespace xpon::logctl
