#include "xpon/log_config/zlog/fsm_log_module.hpp"

#include <cstdint>
#include <iterator>

#include <fmt/compile.h>

namespace xpon::log_config {

namespace {

constexpr auto fsm_module = Modules_names{2};
constexpr unsigned long subject_count = std::size(ModuleFsmPon{}.level);
constexpr int port_count = std::size(ModuleFsmPon{}.port);
constexpr int ont_count = std::size(ModuleFsmPon{}.ont[0]);

// In bytes, with every level debug. Where less is needed, the rest is never touched and costs nothing.
constexpr std::size_t most_text = sizeof(ModuleFsmPon) / sizeof(std::uint16_t) * 300;

} // namespace

FsmLogModule::FsmLogModule(ModuleFsmPon const& descriptor,
                           std::shared_ptr<ILogConfigGenerator> const& generator)
  : ZlogModuleBase{generator, descriptor, fsm_module, subject_count, get_fsm_subjects_from_index, {}}
  , olt_categories{"OLT"} {
    for (int port = 1; port <= port_count; ++port) {
        port_categories.push_back(fmt::format(FMT_COMPILE("PON-PORT_{}"), port));
        for (int ont = 1; ont <= ont_count; ++ont) {
            ont_categories.push_back(fmt::format(FMT_COMPILE("ONT_{}/{}"), port, ont));
        }
    }
    if (!FsmLogModule::update_config(descriptor).has_value()) {
        throw std::runtime_error("Failed update config for MODULE_FSM");
    }
}

Result<void> FsmLogModule::update_config(std::any const& descriptor) {
    auto const* const levels = std::any_cast<ModuleFsmPon>(&descriptor);
    if (levels == nullptr) {
        return core::fail(core::Error::CommonError, "Failed any_cast std::any to ModuleFsmPon");
    }
    std::string text;
    text.reserve(most_text);
    append_subject_rules(text, *levels);
    for (auto const& category : olt_categories) {
        text += generator->generate(category, levels->olt);
    }
    for (auto const* level = levels->port; auto const& category : port_categories) {
        text += generator->generate(category, *level++);
    }
    for (std::size_t index = 0; auto const& category : ont_categories) {
        text += generator->generate(category, levels->ont[index / ont_count][index % ont_count]);
        ++index;
    }
    config = std::move(text);
    return core::success();
}

} // namespace xpon::log_config
