#include "xpon/log_config/zlog/fsm_log_module.hpp"

#include <array>
#include <cstdint>
#include <cstring>

#include <fmt/compile.h>

#include "xpon/log_config/zlog/module_number.hpp"

namespace xpon::log_config {

namespace {

constexpr auto fsm_module = module_of(2);
constexpr std::size_t subject_count = 11;
constexpr std::size_t port_count = 16;
constexpr std::size_t ont_count = 256; // of each port

/// The 16-bit words at the start of the descriptor, whatever its members are called: the levels of the
/// subjects, of the OLT, of the ports, of the ONTs of port 1, of port 2 …
using Levels = std::array<std::uint16_t, subject_count + 1 + port_count + port_count * ont_count>;
static_assert(std::tuple_size_v<Levels> == 4124 && sizeof(ModuleFsmPon) >= sizeof(Levels));

// In bytes, with every level at debug. If less is needed, the unused memory is never touched and costs
// nothing.
constexpr std::size_t most_text = std::tuple_size_v<Levels> * 300;

} // namespace

FsmLogModule::FsmLogModule(ModuleFsmPon const& descriptor,
                           std::shared_ptr<ILogConfigGenerator> const& generator)
  : ZlogModuleBase{generator, descriptor, fsm_module, subject_count, get_fsm_subjects_from_index, {}}
  , olt_categories{"OLT"} {
    for (std::size_t port = 1; port <= port_count; ++port) {
        port_categories.push_back(fmt::format(FMT_COMPILE("PON-PORT_{}"), port));
        for (std::size_t ont = 1; ont <= ont_count; ++ont) {
            ont_categories.push_back(fmt::format(FMT_COMPILE("ONT_{}/{}"), port, ont));
        }
    }
    if (!FsmLogModule::update_config(descriptor).has_value()) {
        throw std::runtime_error("Failed update config for MODULE_FSM");
    }
}

Result<void> FsmLogModule::update_config(std::any const& descriptor) {
    auto const* const record = std::any_cast<ModuleFsmPon>(&descriptor);
    if (record == nullptr) {
        return core::fail(core::Error::CommonError, "Failed any_cast std::any to ModuleFsmPon");
    }
    Levels levels;
    std::memcpy(&levels, record, sizeof levels);
    std::string text;
    text.reserve(most_text);
    append_subject_rules(text, *record);
    auto const* level = &levels[subject_count];
    for (auto const* categories : {&olt_categories, &port_categories, &ont_categories}) {
        for (auto const& category : *categories) {
            text += generator->generate(category, *level++);
        }
    }
    config = std::move(text);
    return core::success();
}

} // namespace xpon::log_config
