#pragma once

#include <cstdint>
#include <source_location>
#include <string_view>

namespace xpon::core {

/// The logger's levels, from the least to the most severe.
enum class LogLevel : std::uint8_t { Debug = 0, Info = 1, Notice = 2, Warn = 3, Error = 4, Fatal = 5 };

/// The two levels that the daemon itself writes at.
inline constexpr LogLevel log_routine = LogLevel::Debug;
inline constexpr LogLevel log_failure = LogLevel::Error;

/// Receives the program's log lines. Every operation is safe from any thread and throws no exceptions of its
/// own.
class ILogger {
  public:
    /// True if a line of this level would be written. Callers ask before they format a message.
    virtual bool is_enabled(LogLevel level) const = 0;

    /// Writes one line, whatever `is_enabled` returns. `text` is read only during the call.
    virtual void log(LogLevel level, std::string_view text, std::source_location const& where) = 0;

    virtual ~ILogger() = default;
};

} // namespace xpon::core
