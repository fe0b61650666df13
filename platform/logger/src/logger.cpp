#include "xpon/logger/logger.hpp"

#include <algorithm>
#include <array>
#include <mutex>
#include <stdexcept>
#include <utility>

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

#include "core/failure.hpp"
#include "core/reason.hpp"
#include "core/uninterrupted.hpp"
#include "core/unique_fd.hpp"
#include "rules_in_force.hpp"

namespace xpon::logger {

namespace {

using core::Error;
using core::fail;
using core::Result;
using core::success;
using core::uninterrupted;

ZlogFile load_zlog_file(std::filesystem::path const& path) {
    core::UniqueFd const file{uninterrupted([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC); })};
    std::string text;
    std::array<char, 4096> part{};
    ssize_t size = file ? 1 : -1;
    while (size > 0) {
        // NOLINTNEXTLINE(clang-analyzer-unix.BlockInCriticalSection): one reload after the other is wanted
        size = uninterrupted([&] { return ::read(file.get(), part.data(), part.size()); });
        text.append(part.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    }
    return size == 0 ? read_zlog_file(text) : unreadable_zlog_file(core::reason_of(errno));
}

/// Names the file, and the first of the lines that cannot be read.
std::string described(std::filesystem::path const& path, std::vector<ZlogFile::Problem> const& problems) {
    auto const& [line, what] = problems.front();
    if (line == 0) {
        return fmt::format("\"{}\": {}", path.string(), what);
    }
    return fmt::format("\"{}\" line {}: {} (lines that cannot be read: {})", path.string(), line, what,
                       problems.size());
}

} // namespace

struct Logger::Category : ObedientCategory {
    using ObedientCategory::ObedientCategory;
};

Logger::Logger(std::string const& category_name) {
    if (category_name.empty()) {
        throw std::invalid_argument{"a logger needs a category"};
    }
    category = std::make_shared<Category>(category_name);
}

Logger::~Logger() = default;

bool Logger::is_enabled(core::LogLevel level) const {
    return category->is_enabled(level);
}

void Logger::log(core::LogLevel level, std::string_view text, std::source_location const& where) {
    // A caller may still want the error number of what it reports.
    int const error_number = errno;
    try {
        category->log(level, text, where);
    } catch (...) { // NOLINT(bugprone-empty-catch)
        // Out of memory: there is nobody to tell.
    }
    errno = error_number;
}

/// The life of the file's rules among those in force.
struct Logger::LoggerContext::State {
    State(std::filesystem::path config_file, ZlogFile rules)
      : path{std::move(config_file)}
      , key{RulesInForce::instance().add(std::move(rules))} {}
    ~State() { RulesInForce::instance().remove(key); }
    State(State const&) = delete;
    State& operator=(State const&) = delete;

    std::filesystem::path const path;
    RulesInForce::Key const key;
    std::mutex reading; // so that what was read last is also what holds
};

Result<std::unique_ptr<Logger::LoggerContext>>
Logger::create_context(std::filesystem::path const& config_file, std::string const& name,
                       std::uint16_t number) {
    if (name.empty()) {
        return fail(Error::InvalidInputArg, "A logging context needs a name");
    }
    auto file = load_zlog_file(config_file);
    auto const problems = file.problems;
    std::unique_ptr<LoggerContext> context{
        new LoggerContext{std::make_unique<LoggerContext::State>(config_file, std::move(file))}};
    if (!problems.empty()) {
        Logger{name}.log(
            core::LogLevel::Warn,
            fmt::format(
                "Log rules of {}:{} are incomplete, categories without one have the built-in levels: {}",
                name, number, described(config_file, problems)),
            std::source_location::current());
    }
    return context;
}

Logger::LoggerContext::LoggerContext(std::unique_ptr<State>&& context_state)
  : state{std::move(context_state)} {}

Logger::LoggerContext::~LoggerContext() = default;

Result<void> Logger::LoggerContext::reload() {
    std::lock_guard const lock{state->reading};
    auto file = load_zlog_file(state->path);
    if (!file.problems.empty()) {
        return fail(Error::CommonError, "Log rules stay as they were: {}",
                    described(state->path, file.problems));
    }
    RulesInForce::instance().replace(state->key, std::move(file));
    return success();
}

} // namespace xpon::logger
