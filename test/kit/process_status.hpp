#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include <sys/types.h>

namespace xpon::test {

/// What the status file in a folder of /proc says behind this label, such as "VmRSS:"; empty once the process
/// has ended.
inline std::string status_of(std::filesystem::path const& proc, std::string_view label) {
    std::ifstream status{proc / "status"};
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(label)) {
            return line.substr(label.size());
        }
    }
    return "";
}

/// A process's memory of the kind that the label names, in kB; 0 once it has ended.
inline long kilobytes(pid_t process, std::string_view label) {
    auto const text = status_of("/proc/" + std::to_string(process), label);
    return text.empty() ? 0 : std::stol(text);
}

/// The signals that a thread blocks, as the kernel has them: bit n - 1 is signal n.
inline std::uint64_t blocked_signals(std::filesystem::path const& thread = "/proc/thread-self") {
    return std::stoull(status_of(thread, "SigBlk:"), nullptr, 16);
}

/// All but SIGKILL, SIGSTOP and the two that the C library keeps for itself.
inline constexpr std::uint64_t every_signal = 0xfffffffe7ffbfeff;

} // namespace xpon::test
