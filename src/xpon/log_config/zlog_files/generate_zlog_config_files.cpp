#include "xpon/log_config/zlog_files/generate_zlog_config_files.hpp"

#include <exception>
#include <utility>

#include "core/failure.hpp"
#include "xpon/config_writer/config_writer.hpp"
#include "xpon/log_config/zlog/zlog_config_file.hpp"
#include "xpon/log_config/zlog/zlog_config_generator.hpp"
#include "xpon/log_config/zlog_files/config_files.hpp"

namespace xpon::log_config {

using core::Error;
using core::fail;
using core::guarded;
using core::log;
using core::log_routine;
using core::pass_on;
using core::success;

Result<std::vector<std::unique_ptr<ILogConfigFile>>>
generate_zlog_config_files(std::shared_ptr<cfgdb::CfgDbWrapper> const& cfgdb,
                           std::shared_ptr<ipc::IIpc> const& ipc,
                           std::shared_ptr<core::ILogger> const& logger) {
    return generate_zlog_config_files_in(zlog_folder, cfgdb, ipc, logger);
}

Result<std::vector<std::unique_ptr<ILogConfigFile>>>
generate_zlog_config_files_in(std::string const& folder, std::shared_ptr<cfgdb::CfgDbWrapper> const& cfgdb,
                              std::shared_ptr<ipc::IIpc> const& ipc,
                              std::shared_ptr<core::ILogger> const& logger) {
    auto const generator = std::make_shared<ZlogConfigGenerator>();
    std::vector<std::unique_ptr<ILogConfigFile>> files;
    for (auto const& file : zlog_files) {
        OUTCOME_TRY(pass_on(*logger, guarded(*logger, [&] {
            return add_config_file(folder + std::string{file.name}, file.module, cfgdb, logger, ipc,
                                   generator, files, file.add_modules);
        })));
    }
    return files;
}

Result<void> add_config_file(std::string const& path, Modules_names module,
                             std::shared_ptr<cfgdb::CfgDbWrapper> const& cfgdb,
                             std::shared_ptr<core::ILogger> const& logger,
                             std::shared_ptr<ipc::IIpc> const& ipc,
                             std::shared_ptr<ILogConfigGenerator> const& generator,
                             std::vector<std::unique_ptr<ILogConfigFile>>& files,
                             GenerateModulesFn&& add_modules) {
    LogModules modules;
    auto writer = std::make_unique<config_writer::ConfigWriter>(path);
    try {
        OUTCOME_TRY(add_modules(modules, cfgdb, generator));
    } catch (std::exception const& exception) {
        return fail(Error::CommonError, "Failed create modules for \"{}\" with: {}", path, exception.what());
    } catch (...) {
        return fail(Error::CommonError, "Failed create modules for \"{}\" with unknown exception", path);
    }
    try {
        files.push_back(
            std::make_unique<ZlogConfigFile>(std::move(writer), generator, module, std::move(modules), ipc));
    } catch (std::exception const& exception) {
        return fail(Error::CommonError, "Failed create \"{}\" with: {}", path, exception.what());
    } catch (...) {
        return fail(Error::CommonError, "Failed create \"{}\" with unknown exception", path);
    }
    log(*logger, log_routine, "Successfully generate \"{}\" ", path);
    return success();
}

} // namespace xpon::log_config
