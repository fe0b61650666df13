#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace xpon::logctl {

struct Process {
    int pid;
    std::int64_t since; ///< seconds since the epoch
    bool frozen;        ///< stopped by a signal or a debugger
};

/// The oldest process of this name; nothing if none runs.
std::optional<Process> find_process(std::string const& name);

/// Who works at a terminal.
struct Holder {
    int pid;
    std::string name;
};

/// The leader of the session on /dev/pts/N; nothing if there is none.
std::optional<Holder> holder_of_terminal(unsigned number);

/// The names in a folder that are numbers, in ascending order.
std::vector<unsigned> numbers_in(std::string const& folder);

} // namespace xpon::logctl
