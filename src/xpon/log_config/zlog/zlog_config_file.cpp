#include "xpon/log_config/zlog/zlog_config_file.hpp"

#include <stdexcept>
#include <utility>

#include "core/failure.hpp"
#include "xpon/log_config/zlog/module_number.hpp"
#include "xpon/log_config/zlog/zlog_text.hpp"

namespace xpon::log_config {

using core::caught;
using core::Error;
using core::fail;
using core::success;

ZlogConfigFile::ZlogConfigFile(std::unique_ptr<config_writer::IConfigWriter>&& writer,
                               std::shared_ptr<ILogConfigGenerator> const& generator, Modules_names module,
                               LogModules&& modules, std::shared_ptr<ipc::IIpc> const& ipc)
  : module{module}
  , writer{std::move(writer)}
  , modules{std::move(modules)}
  , generator{generator}
  , ipc{ipc}
  , notification{ipc::payload_of(ipc::FileChange{number_of(module)})}
  , notification_header{ipc::file_changed_header} {
    if (!write().has_value()) {
        throw std::runtime_error(fmt::format("Failed write config file for module {}", number_of(module)));
    }
}

Result<void> ZlogConfigFile::apply_new_config(ModuleChanges const& changes) {
    bool changed = false;
    for (auto const& [changed_module, descriptor] : changes) {
        auto const entry = modules.find(changed_module);
        if (entry == modules.end()) {
            continue;
        }
        if (!entry->second->update_config(descriptor).has_value()) {
            return fail(Error::CommonError, "Failed update_config for module {}", number_of(changed_module));
        }
        changed = true;
    }
    if (!changed) {
        return success();
    }
    OUTCOME_TRY(caught([this] { return write(); }));
    return caught([this] { return notify(); });
}

Result<void> ZlogConfigFile::write() {
    return writer->write(zlog_text(*generator, modules));
}

Result<void> ZlogConfigFile::notify() {
    return ipc->send(notification_header, notification);
}

} // namespace xpon::log_config
