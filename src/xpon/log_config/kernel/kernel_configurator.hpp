#pragma once

#include <memory>

#include "xpon/log_config/kernel/i_kernel_configurator.hpp"
#include "xpon/system_wrapper/i_system_wrapper.hpp"

namespace xpon::log_config {

/// The kernel's number for a level: level 0 (critical) is KERN_CRIT, which is 2 (linux/kern_levels.h). The
/// kernel prints messages below the number.
constexpr int kernel_level(SyslogKernelDest const& dest) {
    return dest.level + 2;
}

/// Writes the level to /proc/sys/kernel/printk in the kernel's numbering at every call, even if
/// it is unchanged. Only the console level changes; the other numbers in the file keep their values.
class KernelConfigurator : public IKernelConfigurator {
  public:
    explicit KernelConfigurator(std::shared_ptr<system_wrapper::ISystemWrapper> const& system_wrapper);

    /// Fails with `CommonError`, naming the command, if it cannot be run or exits non-zero. Logs nothing.
    Result<void> apply_new_config(SyslogKernelDest const& dest) override;

  private:
    std::shared_ptr<system_wrapper::ISystemWrapper> system_wrapper;
};

} // namespace xpon::log_config
