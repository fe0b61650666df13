#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "commands/command.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"
#include "xpon/log_config/outputs/outputs.hpp"

namespace xpon::logctl {

/// What the database asks of the outputs. An error names the settings that stand in the way.
class Wanted {
  public:
    /// The database must exist; permission to read it is enough.
    static core::Result<Wanted> open(Context const& context);

    /// Of syslog-ng.conf with the terminals that the file on the disk has an output for.
    core::Result<std::string> text(log_config::Output const& output) const;

    /// The zlog files that hold rules of this module.
    core::Result<std::vector<std::string_view>> files_with(Modules_names module) const;

  private:
    Wanted(std::filesystem::path in_folder, std::shared_ptr<cfgdb::CfgDbWrapper> opened)
      : folder{std::move(in_folder)}
      , database{std::move(opened)} {}

    /// Which of the settings whose path begins so stand in the way.
    core::ErrorPayload unreadable(std::string_view group) const;

    std::filesystem::path folder;
    std::shared_ptr<cfgdb::CfgDbWrapper> database;
};

} // namespace xpon::logctl
