#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "core/i_logger.hpp"

namespace xpon::test {

/// Remembers every line.
class FakeLogger : public core::ILogger {
  public:
    struct Line {
        core::LogLevel level;
        std::string text;
        std::source_location where;
    };

    explicit FakeLogger(core::LogLevel lowest_level = core::LogLevel::Debug)
      : lowest{lowest_level} {}

    bool is_enabled(core::LogLevel level) const override {
        std::lock_guard const lock{mutex};
        questions.push_back(level);
        return level >= lowest;
    }

    void log(core::LogLevel level, std::string_view text, std::source_location const& where) override {
        std::lock_guard const lock{mutex};
        written.push_back({level, std::string{text}, where});
    }

    std::vector<Line> lines() const {
        std::lock_guard const lock{mutex};
        return written;
    }

    std::vector<std::string> texts() const {
        std::vector<std::string> all;
        for (auto const& line : lines()) {
            all.push_back(line.text);
        }
        return all;
    }

    std::vector<core::LogLevel> levels() const {
        std::vector<core::LogLevel> all;
        for (auto const& line : lines()) {
            all.push_back(line.level);
        }
        return all;
    }

    /// Of which levels it was asked whether they are enabled.
    std::vector<core::LogLevel> asked() const {
        std::lock_guard const lock{mutex};
        return questions;
    }

  private:
    core::LogLevel lowest;
    mutable std::mutex mutex;
    std::vector<Line> written;                     // guarded by mutex
    mutable std::vector<core::LogLevel> questions; // guarded by mutex
};

} // namespace xpon::test
