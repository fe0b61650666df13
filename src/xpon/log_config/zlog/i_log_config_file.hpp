#pragma once

#include <any>
#include <utility>
#include <vector>

#include "core/result.hpp"
#include "xpon/cfgdb/modules.hpp"

namespace xpon::log_config {

using core::Result;

/// Modules and their newly read descriptor records, each held by value.
using ModuleChanges = std::vector<std::pair<Modules_names, std::any>>;

class ILogConfigFile {
  public:
    /// Applies the changes of the file's own modules and ignores the others. If there was one, rewrites the
    /// file and notifies the module that reads it. After a failure the file is complete, old or new. One
    /// thread at a time.
    virtual Result<void> apply_new_config(ModuleChanges const& changes) = 0;

    virtual ~ILogConfigFile() = default;
};

} // namespace xpon::log_config
