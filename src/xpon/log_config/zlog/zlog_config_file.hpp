#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "xpon/config_writer/i_config_writer.hpp"
#include "xpon/ipc/file_events.hpp"
#include "xpon/ipc/i_ipc.hpp"
#include "xpon/log_config/zlog/i_log_config_file.hpp"
#include "xpon/log_config/zlog/i_log_config_generator.hpp"
#include "xpon/log_config/zlog/i_log_module.hpp"

namespace xpon::log_config {

/// One file of /etc/zlog_modules_config: the header, then the rules of its modules in ascending order.
class ZlogConfigFile : public ILogConfigFile {
  public:
    /// Writes the file and notifies nobody. `module` is the one that reads the file. Throws
    /// std::runtime_error if the write fails.
    ZlogConfigFile(std::unique_ptr<config_writer::IConfigWriter>&& writer,
                   std::shared_ptr<ILogConfigGenerator> const& generator, Modules_names module,
                   LogModules&& modules, std::shared_ptr<ipc::IIpc> const& ipc);

    /// Fails with `CommonError` if a module refuses its change; changes applied before it are written by the
    /// next successful rewrite. Also fails if writing or notifying fails or throws (`Exception`).
    Result<void> apply_new_config(ModuleChanges const& changes) override;

  private:
    Result<void> write();
    Result<void> notify();

    [[maybe_unused]] Modules_names module; // the one that is notified, see `notification`
    std::unique_ptr<config_writer::IConfigWriter> writer;
    LogModules modules;
    std::shared_ptr<ILogConfigGenerator> generator;
    std::shared_ptr<ipc::IIpc> ipc;
    std::vector<std::byte> notification; // the module's value
    ipc::Header notification_header;
};

} // namespace xpon::log_config
