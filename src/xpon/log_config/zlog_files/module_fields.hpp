#pragma once

#include <any>
#include <cstdint>

#include "xpon/cfgdb/modules.hpp"

namespace xpon::log_config {

/// What a changed field of the logging configuration means for the zlog files.
struct ModuleField {
    std::uint32_t field_id;
    Modules_names module;
    /// The module under which the files receive the record.
    Modules_names queued_as;
    /// Reads the module's record into `out`, by value; returns the reader's status.
    int (*read)(void const* db, std::any& out, unsigned short const* key);
};

/// The row of a field; null if the field belongs to no module with stored settings.
ModuleField const* find_module_field(std::uint32_t field_id);

/// The row of a module; null if it has no stored settings.
ModuleField const* find_field_of(Modules_names module);

/// Whether a change of the module's levels is queued under its own value, so that its file is rewritten. True
/// for a module without stored settings.
bool reaches_its_file(Modules_names module);

} // namespace xpon::log_config
