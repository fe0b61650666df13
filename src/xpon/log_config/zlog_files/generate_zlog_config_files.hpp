#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/i_logger.hpp"
#include "core/result.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"
#include "xpon/ipc/i_ipc.hpp"
#include "xpon/log_config/paths.hpp"
#include "xpon/log_config/zlog/i_log_config_file.hpp"
#include "xpon/log_config/zlog_files/add_modules.hpp"

namespace xpon::log_config {

/// Writes every zlog file from the database and returns the 26 file objects in the order of the file table.
/// Stops at the first failure and logs and returns the error. Files written before it stay; the files after
/// it are not touched.
Result<std::vector<std::unique_ptr<ILogConfigFile>>>
generate_zlog_config_files(std::shared_ptr<cfgdb::CfgDbWrapper> const& cfgdb,
                           std::shared_ptr<ipc::IIpc> const& ipc,
                           std::shared_ptr<core::ILogger> const& logger);

/// The same in another folder, which ends in a slash.
Result<std::vector<std::unique_ptr<ILogConfigFile>>>
generate_zlog_config_files_in(std::string const& folder, std::shared_ptr<cfgdb::CfgDbWrapper> const& cfgdb,
                              std::shared_ptr<ipc::IIpc> const& ipc,
                              std::shared_ptr<core::ILogger> const& logger);

/// Creates one file object, which writes its file, and appends it to `files`. Fails with the error of
/// `add_modules`, or with `CommonError` naming the path and the exception.
Result<void> add_config_file(std::string const& path, Modules_names module,
                             std::shared_ptr<cfgdb::CfgDbWrapper> const& cfgdb,
                             std::shared_ptr<core::ILogger> const& logger,
                             std::shared_ptr<ipc::IIpc> const& ipc,
                             std::shared_ptr<ILogConfigGenerator> const& generator,
                             std::vector<std::unique_ptr<ILogConfigFile>>& files,
                             GenerateModulesFn&& add_modules);

} // namespace xpon::log_config
