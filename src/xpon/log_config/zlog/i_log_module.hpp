#pragma once

#include <any>
#include <map>
#include <memory>
#include <string>

#include "core/result.hpp"
#include "xpon/cfgdb/modules.hpp"

namespace xpon::log_config {

using core::Result;

/// One logging module inside one zlog file.
class ILogModule {
  public:
    /// The module's rule text as of the last successful update.
    virtual std::string const& get_config() const = 0;

    /// Rebuilds the rule text from the module's descriptor record, held by value. Any other type fails with
    /// `CommonError` and leaves the text unchanged. Writes no file.
    virtual Result<void> update_config(std::any const& descriptor) = 0;

    virtual ~ILogModule() = default;
};

/// The modules of one file, in the order in which they are written.
using LogModules = std::map<Modules_names, std::unique_ptr<ILogModule>>;

} // namespace xpon::log_config
