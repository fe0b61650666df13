#pragma once

#include <concepts>
#include <source_location>
#include <string_view>
#include <type_traits>
#include <utility>

#include <fmt/format.h>

#include "core/i_logger.hpp"

namespace xpon::core {

/// A format string, checked at compile time, with the location of the call that contains it.
template <class... Args>
struct LocatedFormat {
    template <std::convertible_to<std::string_view> S>
    // NOLINTNEXTLINE(google-explicit-constructor): converting a literal at the call site is its purpose
    consteval LocatedFormat(S const& format, std::source_location where = std::source_location::current())
      : text{format}
      , location{where} {}

    fmt::format_string<Args...> text;
    std::source_location location;
};

/// Formats a line and writes it with the caller's location, but only if the logger accepts the level.
template <class... Args>
void log(ILogger& logger, LogLevel level, LocatedFormat<std::type_identity_t<Args>...> format,
         Args&&... args) {
    if (logger.is_enabled(level)) {
        logger.log(level, fmt::format(format.text, std::forward<Args>(args)...), format.location);
    }
}

} // namespace xpon::core
