#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "commands/command.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"
#include "xpon/cfgdb/module_table.hpp"
#include "xpon/log_config/syslog_ng/syslog_ng_text.hpp"
#include "xpon/log_config/zlog_files/config_files.hpp"

namespace xpon::logctl {

inline constexpr char const* syslog_ng_conf = "/etc/syslog-ng/syslog-ng.conf";

/// What the daemon would write now, made from the database by the daemon's own code. An error names the
/// settings that stand in the way.
class Wanted {
  public:
    /// The database must exist; reading permission is enough.
    static core::Result<Wanted> open(Context const& context);

    core::Result<std::string> zlog_text(log_config::ConfigFileEntry const& file) const;
    core::Result<std::string> syslog_ng_text(log_config::OpenShells const& shells) const;
    /// The kernel's console level in the kernel's own numbering.
    core::Result<int> kernel_level() const;

    /// Whether this is the text of SESSIONMGR.conf at any levels of its module: it is written at the daemon's
    /// start only.
    bool is_of_another_level(log_config::ConfigFileEntry const& file, std::string_view text) const;

    /// The zlog files that hold rules of this module.
    core::Result<std::vector<std::string>> files_with(Modules_names module) const;

  private:
    Wanted(std::filesystem::path in_folder, std::shared_ptr<cfgdb::CfgDbWrapper> opened)
      : folder{std::move(in_folder)}
      , database{std::move(opened)} {}

    core::Result<log_config::LogModules> modules_in(log_config::ConfigFileEntry const& file) const;
    /// Which stored settings of a group stand in the way.
    core::ErrorPayload unreadable(std::string_view group) const;

    std::filesystem::path folder;
    std::shared_ptr<cfgdb::CfgDbWrapper> database;
};

/// The terminals that a text of syslog-ng.conf gives an output: only the daemon knows which have opened since
/// it serves.
log_config::OpenShells shells_in(std::string_view syslog_ng_conf);

/// What is in the file; nothing if it cannot be read.
std::optional<std::string> file_text(std::filesystem::path const& path);

} // namespace xpon::logctl
