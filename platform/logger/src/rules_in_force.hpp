#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include <spdlog/logger.h>

#include "core/i_logger.hpp"
#include "zlog_file.hpp"

namespace xpon::logger {

/// One category under the rules in force. They are applied when it is created and whenever they change. Safe
/// from any thread.
class ObedientCategory {
  public:
    explicit ObedientCategory(std::string const& category_name);
    ~ObedientCategory();

    ObedientCategory(ObedientCategory const&) = delete;
    ObedientCategory& operator=(ObedientCategory const&) = delete;

    bool is_enabled(core::LogLevel level) const;
    void log(core::LogLevel level, std::string_view text, std::source_location const& where) const;

    void obey(ZlogFile const& file);

  private:
    using Writers = std::array<std::shared_ptr<spdlog::logger>, zlog_level_names.size()>;

    std::string const name;
    std::atomic<unsigned> enabled = 0; // bit n for level n
    mutable std::mutex mutex;
    Writers writers; // guarded by mutex
};

/// The files of the existing contexts, of which the newest applies, and the categories that follow it.
class RulesInForce {
  public:
    using Key = std::uint64_t;

    /// The process's only one. It outlives every logger, those with static storage duration included.
    static RulesInForce& instance();

    Key add(ZlogFile file);
    void replace(Key key, ZlogFile file);
    void remove(Key key);

    void join(ObedientCategory& category);
    void leave(ObedientCategory& category);

  private:
    RulesInForce() = default;

    ZlogFile const& in_force() const; // wants mutex held
    void apply();                     // wants mutex held

    std::mutex mutex;
    ZlogFile const without_context = unreadable_zlog_file("there is no context");
    Key last_key = 0;                       // guarded by mutex
    std::map<Key, ZlogFile> files;          // guarded by mutex; the newest has the highest key
    std::set<ObedientCategory*> categories; // guarded by mutex
};

} // namespace xpon::logger
