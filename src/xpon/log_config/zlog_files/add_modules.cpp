#include "xpon/log_config/zlog_files/add_modules.hpp"

#include "xpon/log_config/zlog/add_module.hpp"
#include "xpon/log_config/zlog/fsm_log_module.hpp"
#include "xpon/log_config/zlog_files/catalogue.hpp"

namespace xpon::log_config {

using namespace catalogue;
using core::success;

namespace {

/// Where the modules of one file are read from and stored.
struct Target {
    LogModules& modules;
    std::shared_ptr<cfgdb::CfgDbWrapper> const& cfgdb;
    std::shared_ptr<ILogConfigGenerator> const& generator;
};

/// A module whose subject CUSTOM_1LAYER becomes C-L in its categories.
template <class M, class S>
struct WithCustomLayer {
    ModuleEntry<M, S> const& entry;
};
template <class M, class S>
WithCustomLayer(ModuleEntry<M, S> const&) -> WithCustomLayer<M, S>;

template <class M, class S>
Result<void> add(Target const& to, ModuleEntry<M, S> const& entry, SubjectFormatter const& formatter = {}) {
    return add_module<M, S>(to.cfgdb, to.modules, to.generator, entry.module, entry.subject_count,
                            entry.subject_name, entry.read_descriptor, formatter);
}

template <class M, class S>
Result<void> add(Target const& to, WithCustomLayer<M, S> const& row) {
    return add(to, row.entry, custom_layer_formatter);
}

Result<void> add(Target const& to, ModuleEntry<ModuleFsmPon, Fsm_subjects> const& entry) {
    OUTCOME_TRY(descriptor, read_module<ModuleFsmPon>(*to.cfgdb, entry.read_descriptor));
    to.modules[entry.module] = std::make_unique<FsmLogModule>(descriptor, to.generator);
    return success();
}

/// Adds the rows in order and stops at the first failure. Its code becomes CommonError; its message is kept.
template <class... Rows>
Result<void> add_all(Target const& to, Rows const&... rows) {
    Result<void> result = success();
    std::ignore = ((result = add(to, rows)).has_value() && ...);
    if (!result.has_value()) {
        result.error().error = core::Error::CommonError;
    }
    return result;
}

} // namespace

// clang-format off
XPON_ADD_MODULES(add_dna_module)
{
    return add_all({modules, cfgdb, generator}, dna, dhcp_ra, ipsg, pppoe_ia, l3_agent, ont_connections, lldp, lacp,
                   watchdog, igmp, datapath, arp, fsm_pon);
}
XPON_ADD_MODULES(add_acs_config_dump_module) { return add_all({modules, cfgdb, generator}, acs_config_dump); }
XPON_ADD_MODULES(add_acs_custom_module)      { return add_all({modules, cfgdb, generator}, acs_custom); }
XPON_ADD_MODULES(add_acsd_config_module)     { return add_all({modules, cfgdb, generator}, acsd_config); }
XPON_ADD_MODULES(add_alarm_mgr_module)       { return add_all({modules, cfgdb, generator}, alarm_mgr, alarm); }
XPON_ADD_MODULES(add_api_service_module)     { return add_all({modules, cfgdb, generator}, WithCustomLayer{api_service}); }
XPON_ADD_MODULES(add_auto_backup_module)     { return add_all({modules, cfgdb, generator}, WithCustomLayer{auto_backup_mgr}); }
XPON_ADD_MODULES(add_bootloader_upg_module)  { return add_all({modules, cfgdb, generator}, bootloader_upgrade, watchdog); }
XPON_ADD_MODULES(add_cli_module)             { return add_all({modules, cfgdb, generator}, WithCustomLayer{cli}, ptable); }
XPON_ADD_MODULES(add_config_mgr_module)      { return add_all({modules, cfgdb, generator}, config_mgr); }
XPON_ADD_MODULES(add_election_module)        { return add_all({modules, cfgdb, generator}, election); }
XPON_ADD_MODULES(add_file_mgr_module)        { return add_all({modules, cfgdb, generator}, file_mgr); }
XPON_ADD_MODULES(add_firmware_module)        { return add_all({modules, cfgdb, generator}, firmware); }
XPON_ADD_MODULES(add_ipc_broker_module)      { return add_all({modules, cfgdb, generator}, ipc_broker); }
XPON_ADD_MODULES(add_ntpd_config_module)     { return add_all({modules, cfgdb, generator}, ntpd_config); }
XPON_ADD_MODULES(add_session_mgr_module)     { return add_all({modules, cfgdb, generator}, session_mgr); }
XPON_ADD_MODULES(add_slot_module)            { return add_all({modules, cfgdb, generator}, slot_mgr); }
XPON_ADD_MODULES(add_snmp_module)            { return add_all({modules, cfgdb, generator}, WithCustomLayer{snmp}, ptable); }
XPON_ADD_MODULES(add_snmpd_config_module)    { return add_all({modules, cfgdb, generator}, snmpd_conf); }
XPON_ADD_MODULES(add_switch_module)          { return add_all({modules, cfgdb, generator}, switch_); }
XPON_ADD_MODULES(add_system_mgr_module)      { return add_all({modules, cfgdb, generator}, system_mgr); }
XPON_ADD_MODULES(add_userd_config_module)    { return add_all({modules, cfgdb, generator}, userd_conf); }
XPON_ADD_MODULES(add_web_config_module)      { return add_all({modules, cfgdb, generator}, web_server_conf); }
XPON_ADD_MODULES(add_log_config_module)      { return add_all({modules, cfgdb, generator}, log_config); }
XPON_ADD_MODULES(add_aaa_config_module)      { return add_all({modules, cfgdb, generator}, aaa_conf); }
XPON_ADD_MODULES(add_netserve_config_module) { return add_all({modules, cfgdb, generator}, netserve); }
// clang-format on

} // namespace xpon::log_config
