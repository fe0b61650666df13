#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "core/i_logger.hpp"
#include "core/result.hpp"

namespace xpon::logger {

/// A logger of one category. While a context exists, the category's rules in the context's file decide which
/// levels are written and how a line looks. Without a context the built-in levels apply (notice and above;
/// debug and above for the daemon's own categories). Lines go to syslog(3), facility LOG_LOCAL0, and also to
/// standard error if that is a terminal. Safe from any thread.
class Logger : public core::ILogger {
  public:
    class LoggerContext;

    /// Reads a zlog configuration file. Its rules apply to the process until the context is destroyed; the
    /// newest context wins. `name` is the category of the library's own lines; `number` distinguishes
    /// contexts of the same name in them. A missing file or unreadable lines are not a failure: one warning
    /// names the file, the line and the reason, the readable rules apply, and categories without a readable
    /// rule use the built-in levels. Fails with `InvalidInputArg` on an empty name.
    static core::Result<std::unique_ptr<LoggerContext>>
    create_context(std::filesystem::path const& config_file, std::string const& name, std::uint16_t number);

    /// A logger for the lines of `category`. Throws std::invalid_argument on an empty category.
    explicit Logger(std::string const& category);
    ~Logger() override;

    Logger(Logger const&) = delete;
    Logger& operator=(Logger const&) = delete;

    bool is_enabled(core::LogLevel level) const override;
    void log(core::LogLevel level, std::string_view text, std::source_location const& where) override;

  private:
    struct Category;
    std::shared_ptr<Category> category;
};

/// The rules of one zlog configuration file, which apply while the object lives.
class Logger::LoggerContext {
  public:
    ~LoggerContext();

    LoggerContext(LoggerContext const&) = delete;
    LoggerContext& operator=(LoggerContext const&) = delete;

    /// Reads the file again. When it returns, every logger follows the new rules. If the file or one of its
    /// lines cannot be read, the error names file, line and reason, and the old rules stay. Safe from any
    /// thread.
    core::Result<void> reload();

  private:
    friend class Logger;
    struct State;
    explicit LoggerContext(std::unique_ptr<State>&& state);
    std::unique_ptr<State> state;
};

} // namespace xpon::logger
