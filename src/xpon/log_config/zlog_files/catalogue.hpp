#pragma once

// The logging modules of the board, one typed row each. A row that mixes two modules does not compile.

#include <cstdint>
#include <tuple>
#include <utility>

#include "xpon/cfgdb/modules.hpp"
#include "xpon/log_config/zlog/module_number.hpp"

namespace xpon::log_config {

template <class M, class S>
struct ModuleEntry {
    Modules_names module;
    int subject_count;
    int (*subject_name)(char* out, S subject);
    int (*read_descriptor)(void const* db, M* out, unsigned short const* key);
};

/// Gives `init_*` the signature of a reader, for modules without stored settings.
template <auto init, class M>
int defaults_only(void const* /*db*/, M* out, unsigned short const* /*key*/) {
    return init(out);
}

namespace catalogue {

// clang-format off
inline constexpr ModuleEntry<ModuleAlarmMgr,  Alarmmgr_subjects>   alarm_mgr  {module_of(0),  1,  get_alarmmgr_subjects_from_index,   getRunDb_CommonGCfg_logging_module_alarmmgr};
inline constexpr ModuleEntry<ModuleDna,       Dna_subjects>        dna        {module_of(1),  7,  get_dna_subjects_from_index,        getRunDb_CommonGCfg_logging_module_dna};
inline constexpr ModuleEntry<ModuleFsmPon,    Fsm_subjects>        fsm_pon    {module_of(2),  11, get_fsm_subjects_from_index,        getRunDb_CommonGCfg_logging_module_fsm_pon};
inline constexpr ModuleEntry<ModuleIgmp,      Igmp_subjects>       igmp       {module_of(3),  7,  get_igmp_subjects_from_index,       getRunDb_CommonGCfg_logging_module_igmp};
inline constexpr ModuleEntry<ModuleDhcpRa,    Dhcpra_subjects>     dhcp_ra    {module_of(4),  5,  get_dhcpra_subjects_from_index,     getRunDb_CommonGCfg_logging_module_dhcpra};
inline constexpr ModuleEntry<ModuleIpsg,      Ipsg_subjects>       ipsg       {module_of(5),  3,  get_ipsg_subjects_from_index,       getRunDb_CommonGCfg_logging_module_ipsg};
inline constexpr ModuleEntry<ModulePppoeIa,   Pppoe_ia_subjects>   pppoe_ia   {module_of(6),  5,  get_pppoe_ia_subjects_from_index,   getRunDb_CommonGCfg_logging_module_pppoe_ia};
inline constexpr ModuleEntry<ModuleLldp,      Lldp_subjects>       lldp       {module_of(7),  5,  get_lldp_subjects_from_index,       getRunDb_CommonGCfg_logging_module_lldp};
inline constexpr ModuleEntry<ModuleL3Agent,   L3_agent_subjects>   l3_agent   {module_of(8),  2,  get_l3_agent_subjects_from_index,   getRunDb_CommonGCfg_logging_module_l3_agent};
inline constexpr ModuleEntry<ModuleSnmp,      Snmp_subjects>       snmp       {module_of(9),  7,  get_snmp_subjects_from_index,       getRunDb_CommonGCfg_logging_module_snmp};
inline constexpr ModuleEntry<ModuleSessionMgr, Sessionmgr_subjects> session_mgr{module_of(11), 2, get_sessionmgr_subjects_from_index, getRunDb_CommonGCfg_logging_module_sessionmgr};
inline constexpr ModuleEntry<ModuleCli,       Cli_subjects>        cli        {module_of(13), 10, get_cli_subjects_from_index,        getRunDb_CommonGCfg_logging_module_cli};
inline constexpr ModuleEntry<ModuleSwitch,    Switch_subjects>     switch_    {module_of(16), 5,  get_switch_subjects_from_index,     getRunDb_CommonGCfg_logging_module_switch};
inline constexpr ModuleEntry<ModuleLacp,      Lacp_subjects>       lacp       {module_of(17), 5,  get_lacp_subjects_from_index,       getRunDb_CommonGCfg_logging_module_lacp};
inline constexpr ModuleEntry<ModuleDatapath,  Datapath_subjects>   datapath   {module_of(18), 3,  get_datapath_subjects_from_index,   getRunDb_CommonGCfg_logging_module_datapath};
inline constexpr ModuleEntry<ModuleArp,       Arp_subjects>        arp        {module_of(19), 4,  get_arp_subjects_from_index,        getRunDb_CommonGCfg_logging_module_arp};

inline constexpr ModuleEntry<ModuleApiService,        ApiService_subjects>        api_service        {module_of(20), 4, get_apiservice_subjects_from_index,        defaults_only<init_ModuleApiService>};
inline constexpr ModuleEntry<ModuleBootloaderUpgrade, BootloaderUpgrade_subjects> bootloader_upgrade {module_of(21), 1, get_bootloaderupgrade_subjects_from_index, defaults_only<init_ModuleBootloaderUpgrade>};
inline constexpr ModuleEntry<ModuleWatchdog,          Watchdog_subjects>          watchdog           {module_of(22), 1, get_watchdog_subjects_from_index,          defaults_only<init_ModuleWatchdog>};
inline constexpr ModuleEntry<ModulePtable,            Ptable_subjects>            ptable             {module_of(23), 1, get_ptable_subjects_from_index,            defaults_only<init_ModulePtable>};
inline constexpr ModuleEntry<ModuleOntConnections,    OntConnections_subjects>    ont_connections    {module_of(24), 1, get_ontconnections_subjects_from_index,    defaults_only<init_ModuleOntConnections>};
inline constexpr ModuleEntry<ModuleElection,          Election_subjects>          election           {module_of(25), 2, get_election_subjects_from_index,          defaults_only<init_ModuleElection>};
inline constexpr ModuleEntry<ModuleFileMgr,           FileMgr_subjects>           file_mgr           {module_of(26), 2, get_filemgr_subjects_from_index,           defaults_only<init_ModuleFileMgr>};
inline constexpr ModuleEntry<ModuleFirmware,          Firmware_subjects>          firmware           {module_of(27), 3, get_firmware_subjects_from_index,          defaults_only<init_ModuleFirmware>};
inline constexpr ModuleEntry<ModuleIpcBroker,         IpcBroker_subjects>         ipc_broker         {module_of(28), 1, get_ipcbroker_subjects_from_index,         defaults_only<init_ModuleIpcBroker>};
inline constexpr ModuleEntry<ModuleNtpdConfig,        NtpdConfig_subjects>        ntpd_config        {module_of(29), 3, get_ntpdconfig_subjects_from_index,        defaults_only<init_ModuleNtpdConfig>};
inline constexpr ModuleEntry<ModuleSlotMgr,           SlotMgr_subjects>           slot_mgr           {module_of(30), 3, get_slotmgr_subjects_from_index,           defaults_only<init_ModuleSlotMgr>};
inline constexpr ModuleEntry<ModuleSnmpdConf,         SnmpdConf_subjects>         snmpd_conf         {module_of(31), 3, get_snmpdconf_subjects_from_index,         defaults_only<init_ModuleSnmpdConf>};
inline constexpr ModuleEntry<ModuleSystemMgr,         SystemMgr_subjects>         system_mgr         {module_of(32), 3, get_systemmgr_subjects_from_index,         defaults_only<init_ModuleSystemMgr>};
inline constexpr ModuleEntry<ModuleUserdConf,         UserdConfig_subjects>       userd_conf         {module_of(33), 3, get_userdconfig_subjects_from_index,       defaults_only<init_ModuleUserdConf>};
inline constexpr ModuleEntry<ModuleWebServerConf,     WebServerConf_subjects>     web_server_conf    {module_of(34), 3, get_webserverconf_subjects_from_index,     defaults_only<init_ModuleWebServerConf>};
inline constexpr ModuleEntry<ModuleAutoBackupMgr,     AutoBackupMgr_subjects>     auto_backup_mgr    {module_of(35), 5, get_autobackupmgr_subjects_from_index,     defaults_only<init_ModuleAutoBackupMgr>};
inline constexpr ModuleEntry<ModuleConfigMgr,         ConfigMgr_subjects>         config_mgr         {module_of(36), 3, get_configmgr_subjects_from_index,         defaults_only<init_ModuleConfigMgr>};
inline constexpr ModuleEntry<ModuleAlarm,             Alarm_subjects>             alarm              {module_of(37), 1, get_alarm_subjects_from_index,             defaults_only<init_ModuleAlarm>};
inline constexpr ModuleEntry<ModuleLogConfig,         LogConfig_subjects>         log_config         {module_of(38), 3, get_logconfig_subjects_from_index,         defaults_only<init_ModuleLogConfig>};
inline constexpr ModuleEntry<ModuleAcsCustom,         AcsCustom_subjects>         acs_custom         {module_of(39), 3, get_acscustom_subjects_from_index,         getRunDb_CommonGCfg_logging_module_acs_custom};
inline constexpr ModuleEntry<ModuleAcsConfigDump,     AcsConfigDump_subjects>     acs_config_dump    {module_of(40), 1, get_acsconfigdump_subjects_from_index,     defaults_only<init_ModuleAcsConfigDump>};
inline constexpr ModuleEntry<ModuleAcsdConfig,        AcsdConfig_subjects>        acsd_config        {module_of(41), 3, get_acsdconfig_subjects_from_index,        defaults_only<init_ModuleAcsdConfig>};
inline constexpr ModuleEntry<ModuleAaaConf,           AaaConf_subjects>           aaa_conf           {module_of(42), 3, get_aaaconf_subjects_from_index,           defaults_only<init_ModuleAaaConf>};
inline constexpr ModuleEntry<ModuleNetserve,          Netserve_subjects>          netserve           {module_of(43), 2, get_netserve_subjects_from_index,          getRunDb_CommonGCfg_logging_module_netserve};
// clang-format on

/// All rows, by ascending module number.
inline constexpr auto all =
    std::make_tuple(alarm_mgr, dna, fsm_pon, igmp, dhcp_ra, ipsg, pppoe_ia, lldp, l3_agent, snmp, session_mgr,
                    cli, switch_, lacp, datapath, arp, api_service, bootloader_upgrade, watchdog, ptable,
                    ont_connections, election, file_mgr, firmware, ipc_broker, ntpd_config, slot_mgr,
                    snmpd_conf, system_mgr, userd_conf, web_server_conf, auto_backup_mgr, config_mgr, alarm,
                    log_config, acs_custom, acs_config_dump, acsd_config, aaa_conf, netserve);
static_assert(std::tuple_size_v<decltype(all)> == 40);

/// A descriptor starts with its subjects' levels; anything after them belongs to the configuration library.
template <class M, class S>
constexpr bool has_a_level_for_each_subject(ModuleEntry<M, S> const& entry) {
    return sizeof(M) >= sizeof(std::uint16_t) * static_cast<std::size_t>(entry.subject_count);
}

static_assert(std::apply([](auto const&... entry) { return (has_a_level_for_each_subject(entry) && ...); },
                         all));
static_assert(std::apply(
    [](auto const&... entry) {
        std::int64_t last = -1;
        auto const ascends = [&last](Modules_names module) {
            return std::exchange(last, number_of(module)) < std::int64_t{number_of(module)};
        };
        return (ascends(entry.module) && ...);
    },
    all));

} // namespace catalogue

} // namespace xpon::log_config
