#include "xpon/log_config/kernel/kernel_configurator.hpp"

#include "core/failure.hpp"

namespace xpon::log_config {

using core::Error;
using core::fail;
using core::success;

namespace {

// Level 0 (critical) is the kernel's KERN_CRIT, which is 2 (linux/kern_levels.h). The kernel prints messages
// below the number.
constexpr int kernel_number_of_critical = 2;

} // namespace

KernelConfigurator::KernelConfigurator(std::shared_ptr<system_wrapper::ISystemWrapper> const& system_wrapper)
  : system_wrapper{system_wrapper} {}

Result<void> KernelConfigurator::apply_new_config(SyslogKernelDest const& dest) {
    auto const command =
        fmt::format("echo {} > /proc/sys/kernel/printk", dest.level + kernel_number_of_critical);
    auto const status = system_wrapper->execute(command);
    if (!status.has_value() || status.value() != 0) {
        return fail(Error::CommonError, "Failed execute: \"{}\"", command);
    }
    return success();
}

} // namespace xpon::log_config
