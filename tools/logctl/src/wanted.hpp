#pragma once

#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "commands/command.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"
#include "xpon/cfgdb/transaction.hpp"
#include "xpon/log_config/outputs/outputs.hpp"

namespace xpon::logctl {

/// Some of the outputs.
using Outputs = std::vector<log_config::Output const*>;

/// The output of this name, ".conf" or not. Fails with `InvalidInputArg`, naming the nearest.
core::Result<log_config::Output const*> output_of_name(std::string const& name);

/// What the database asks of the outputs. An error names the settings that stand in the way.
class Wanted {
  public:
    /// The database must exist; permission to read it is enough.
    static core::Result<Wanted> open(Context const& context);

    /// Of syslog-ng.conf with the terminals that the file on the disk has an output for.
    core::Result<std::string> text(log_config::Output const& output) const;

    /// What the settings ask of syslog-ng.
    core::Result<SyslogSettings> syslog_settings() const;

    /// The zlog files that hold rules of this module.
    core::Result<Outputs> files_with(Modules_names module) const;

    /// The outputs that hold settings of these fields.
    core::Result<Outputs> outputs_with(std::span<std::uint32_t const> fields) const;

    /// The stored settings that are not allowed, of syslog-ng and the kernel or of the modules.
    std::vector<cfgdb::StoredSetting> not_allowed(log_config::Output const& output) const;

  private:
    Wanted(std::filesystem::path in_folder, std::shared_ptr<cfgdb::CfgDbWrapper> opened)
      : folder{std::move(in_folder)}
      , database{std::move(opened)} {}

    /// Which settings stand in the way.
    core::ErrorPayload unreadable(log_config::Output const& output) const;

    std::filesystem::path folder;
    std::shared_ptr<cfgdb::CfgDbWrapper> database;
};

} // namespace xpon::logctl
