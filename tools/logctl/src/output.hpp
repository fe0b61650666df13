#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "core/result.hpp"

namespace xpon::logctl {

/// Writes what was asked for to standard output.
void print(std::string_view text);

/// Writes one line for the operator to standard error.
void tell(std::string_view text);

/// What an error tells the operator.
std::string text_of(core::ErrorPayload const& error);

/// Fails if not everything that was printed could be written.
core::Result<void> flush_output();

/// Seconds since the epoch as UTC, such as 2024-05-31T08:15:00Z.
std::string utc(std::int64_t time);

/// Columns for a text of whole sentences: those that COLUMNS names, or of the terminal that standard output is; 80
/// for anything else.
std::size_t terminal_width();

/// How a table is shown.
struct Screen {
    static constexpr std::size_t endless = std::numeric_limits<std::size_t>::max();

    bool coloured = false;
    std::size_t width = endless; ///< in columns
};

/// Of standard output: only a terminal has a width, and colours if its user wants them.
Screen screen();

} // namespace xpon::logctl
