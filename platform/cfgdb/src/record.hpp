#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "xpon/cfgdb/config_change.hpp"
#include "xpon/cfgdb/modules.hpp"
#include "xpon/cfgdb/settings.hpp"

namespace xpon::cfgdb {

/// A record that one of the readers fills, and the settings in it.
struct Record {
    std::string prefix;     ///< of the settings' paths, including the last common dot
    std::uint32_t field_id; ///< 0 for a built-in module
    std::span<Setting const> settings;
    std::span<Setting const* const> by_path; ///< the same in the database's order, bytewise
    std::vector<std::byte> defaults;         ///< the whole record if nothing is stored
};

/// Every setting in the database's order, bytewise by path.
std::span<Setting const* const> settings_by_path();

/// Finds the settings of ascending paths, as the database returns them, in one pass over such a list.
class PathWalk {
  public:
    explicit PathWalk(std::span<Setting const* const> by_path)
      : ahead{by_path} {}

    /// The setting with exactly this path; null if there is none after the last one found.
    Setting const* find(std::string_view path) {
        while (!ahead.empty()) {
            auto const order = path.compare(ahead.front()->path);
            if (order < 0) {
                break;
            }
            auto const* const setting = ahead.front();
            ahead = ahead.subspan(1);
            if (order == 0) {
                return setting;
            }
        }
        return nullptr;
    }

  private:
    std::span<Setting const* const> ahead;
};

std::span<Record const> records();
Record const& syslog_record(SyslogField field);
Record const& module_record(Modules_names module);

/// Writes an allowed value to its place in the record.
void put(Setting const& setting, Value const& value, std::span<std::byte> record);

/// What is wrong with a filled record although each value is allowed: two receivers are the same.
std::optional<std::string> contradiction(Record const& record, std::span<std::byte const> filled);

} // namespace xpon::cfgdb
