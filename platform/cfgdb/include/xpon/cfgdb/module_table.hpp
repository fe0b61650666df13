#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "xpon/cfgdb/modules.hpp"

namespace xpon::cfgdb {

/// One logging module. All views are of constant text.
struct Module {
    Modules_names value;
    std::uint32_t field_id;                     ///< of its stored levels; 0 for a built-in module
    std::string_view descriptor;                ///< the type of its record
    std::string_view name;                      ///< in the paths of its settings
    std::string_view stem;                      ///< of its category names
    std::span<std::string_view const> subjects; ///< their names, in the order of its record

    bool built_in() const { return field_id == 0; }
};

/// Every module, by ascending value.
std::span<Module const> modules();

/// The module of this value; null for a number outside the table.
Module const* find_module(Modules_names value);

} // namespace xpon::cfgdb
