#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "core/result.hpp"

namespace xpon::cfgdb {

/// The type of a setting's value, which determines what is allowed.
enum class Kind : std::uint8_t {
    Level,   ///< 0 critical ... 5 debug
    Folder,  ///< an absolute path that ends in '/'
    Size,    ///< in bytes
    Address, ///< dotted IPv4, "0.0.0.0" for none
    Port,
};

/// Levels, sizes and ports are numbers; folders and addresses are text.
using Value = std::variant<std::int64_t, std::string>;

/// One value of the global logging configuration.
struct Setting {
    std::string path; ///< such as "syslog.remote.1.address" or "module.fsm_pon.ont.3.17"; case matters
    Kind kind;
    Value default_value;
    std::uint32_t field_id; ///< identifies a change; 0 if the setting is built in and cannot be set
    std::size_t offset;     ///< in bytes, in the record that the field's reader fills

    bool built_in() const { return field_id == 0; }
};

/// Every setting, built-in ones included: syslog first, then the modules by ascending value, each in the
/// order of its record. Created at the first call and kept. Safe from any thread, as is everything in this
/// header.
std::span<Setting const> settings();

/// The setting with exactly this path; null if there is none.
Setting const* find_setting(std::string_view path);

/// What the settings of a field have in common, such as "syslog.rsh" or "module.snmp"; "field N" if there are
/// none.
std::string field_name(std::uint32_t field_id);

/// The settings that match a pattern, in the order of `settings`, at least one. A pattern is a path in which
/// `*` matches any one component (as the last component, everything below), and `3-16,18` matches the
/// numbers from 3 to 16, and 18. Fails with `InvalidInputArg`, naming the pattern, what is wrong and the nearest valid names.
core::Result<std::vector<Setting const*>> expand(std::string_view pattern);

/// The value of an operator's text; levels by name or number. Fails with `InvalidInputArg`, naming path, text
/// and what is allowed.
core::Result<Value> parse(Setting const& setting, std::string_view text);

/// Whether the value may be stored for a setting of this kind.
bool is_allowed(Kind kind, Value const& value);

/// What is allowed, in words that follow "it must be".
std::string_view allowed(Kind kind);

/// "12 is not allowed; it must be 65536 to 1073741824 bytes".
std::string not_allowed(std::string_view value, std::string_view allowed);

/// "12 is stored, but it must be 65536 to 1073741824 bytes".
std::string wrongly_stored(std::string_view value, Kind kind);

/// A value as an operator writes it: an allowed level by name.
std::string to_text(Kind kind, Value const& value);

} // namespace xpon::cfgdb
