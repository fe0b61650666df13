#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <spdlog/formatter.h>

#include "core/result.hpp"

namespace xpon::logger {

/// zlog's names of the levels, by the number that they have as `core::LogLevel` and as spdlog's level.
inline constexpr std::array<std::string_view, 6> zlog_level_names{
    "DEBUG", "INFO", "NOTICE", "WARN", "ERROR", "FATAL",
};

/// A part of a line.
struct ZlogPart {
    char conversion = '\0'; ///< the letter after the %; none for a constant text
    std::string argument;   ///< the constant text, or the date text of %d
    bool left = false;
    std::size_t width = 0;
    std::size_t precision = std::string_view::npos;
};

/// How a line looks, compiled from the text of a zlog format: %d(strftime text), %V level, %c category,
/// %m message, %f source file without its folder, %U function, %L line, %n line end, %%; each may have a
/// width and a precision in bytes, as in %-14.14c. It never changes: several threads may use one object.
class ZlogFormat : public spdlog::formatter {
  public:
    /// Fails with `InvalidInputArg` naming the conversion that is unknown or incomplete.
    static core::Result<std::shared_ptr<ZlogFormat const>> compile(std::string_view text);

    /// The default format of every file that this system writes.
    static std::shared_ptr<ZlogFormat const> built_in();

    void format(spdlog::details::log_msg const& message, spdlog::memory_buf_t& line) override;
    std::unique_ptr<spdlog::formatter> clone() const override;

  private:
    std::vector<ZlogPart> parts;
};

} // namespace xpon::logger
