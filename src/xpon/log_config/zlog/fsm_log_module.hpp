#pragma once

#include <memory>
#include <string>
#include <vector>

#include "xpon/log_config/zlog/zlog_module_base.hpp"

namespace xpon::log_config {

/// The PON state machines. Besides the 11 subjects, the OLT, each of the 16 PON ports and each of the 256
/// ONTs per port have their own category and level.
class FsmLogModule : public ZlogModuleBase<ModuleFsmPon, Fsm_subjects> {
  public:
    /// Throws std::runtime_error when a name lookup fails.
    FsmLogModule(ModuleFsmPon const& descriptor, std::shared_ptr<ILogConfigGenerator> const& generator);

    Result<void> update_config(std::any const& descriptor) override;

  private:
    std::vector<std::string> olt_categories;  // 1
    std::vector<std::string> port_categories; // index = port - 1
    std::vector<std::string> ont_categories;  // index = (port - 1) * 256 + ONT - 1
};

} // namespace xpon::log_config
