#include "xpon/log_config/kernel/kernel_configurator.hpp"

#include "core/failure.hpp"
#include "xpon/log_config/paths.hpp"

namespace xpon::log_config {

using core::Error;
using core::fail;
using core::success;

KernelConfigurator::KernelConfigurator(std::shared_ptr<system_wrapper::ISystemWrapper> const& system_wrapper)
  : system_wrapper{system_wrapper} {}

Result<void> KernelConfigurator::apply_new_config(SyslogKernelDest const& dest) {
    auto const command = fmt::format("echo {} > {}", kernel_level(dest), printk);
    auto const status = system_wrapper->execute(command);
    if (!status.has_value() || status.value() != 0) {
        return fail(Error::CommonError, "Failed execute: \"{}\"", command);
    }
    return success();
}

} // namespace xpon::log_config
