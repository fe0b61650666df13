#pragma once

// The logging modules of the board, one typed row each. A row that mixes two modules does not compile.

#include <algorithm>
#include <array>
#include <cstdint>

#include "xpon/cfgdb/modules.hpp"
#include "xpon/log_config/zlog/module_number.hpp"

namespace xpon::log_config {

template <class M, class S>
struct ModuleEntry {
    Modules_names module;
    int subject_count;
    int (*subject_name)(char* out, S subject);
    int (*read_descriptor)(void const* db, M* out, unsigned short const* key);
    std::uint32_t field_id; ///< of its stored levels; 0 if it has none
};

/// Gives `init_*` the signature of a reader, for modules without stored settings.
template <auto init, class M>
int defaults_only(void const* /*db*/, M* out, unsigned short const* /*key*/) {
    return init(out);
}

namespace catalogue {

// By ascending number: STORED(row, number, descriptor, subjects, their count, name of lookup, name of reader,
// field) BUILT_IN(row, number, descriptor, subjects, their count, name of lookup)
// clang-format off
#define XPON_CATALOGUE(STORED, BUILT_IN) \
    STORED(   alarm_mgr,          0,  ModuleAlarmMgr,          Alarmmgr_subjects,          1,  alarmmgr,          alarmmgr,   58) \
    STORED(   dna,                1,  ModuleDna,               Dna_subjects,               7,  dna,               dna,        59) \
    STORED(   fsm_pon,            2,  ModuleFsmPon,            Fsm_subjects,               11, fsm,               fsm_pon,    60) \
    STORED(   igmp,               3,  ModuleIgmp,              Igmp_subjects,              7,  igmp,              igmp,       61) \
    STORED(   dhcp_ra,            4,  ModuleDhcpRa,            Dhcpra_subjects,            5,  dhcpra,            dhcpra,     62) \
    STORED(   ipsg,               5,  ModuleIpsg,              Ipsg_subjects,              3,  ipsg,              ipsg,       64) \
    STORED(   pppoe_ia,           6,  ModulePppoeIa,           Pppoe_ia_subjects,          5,  pppoe_ia,          pppoe_ia,   65) \
    STORED(   lldp,               7,  ModuleLldp,              Lldp_subjects,              5,  lldp,              lldp,       66) \
    STORED(   l3_agent,           8,  ModuleL3Agent,           L3_agent_subjects,          2,  l3_agent,          l3_agent,   68) \
    STORED(   snmp,               9,  ModuleSnmp,              Snmp_subjects,              7,  snmp,              snmp,       69) \
    STORED(   session_mgr,        11, ModuleSessionMgr,        Sessionmgr_subjects,        2,  sessionmgr,        sessionmgr, 71) \
    STORED(   cli,                13, ModuleCli,               Cli_subjects,               10, cli,               cli,        73) \
    STORED(   switch_,            16, ModuleSwitch,            Switch_subjects,            5,  switch,            switch,     78) \
    STORED(   lacp,               17, ModuleLacp,              Lacp_subjects,              5,  lacp,              lacp,       67) \
    STORED(   datapath,           18, ModuleDatapath,          Datapath_subjects,          3,  datapath,          datapath,   79) \
    STORED(   arp,                19, ModuleArp,               Arp_subjects,               4,  arp,               arp,        63) \
    BUILT_IN( api_service,        20, ModuleApiService,        ApiService_subjects,        4,  apiservice)                        \
    BUILT_IN( bootloader_upgrade, 21, ModuleBootloaderUpgrade, BootloaderUpgrade_subjects, 1,  bootloaderupgrade)                 \
    BUILT_IN( watchdog,           22, ModuleWatchdog,          Watchdog_subjects,          1,  watchdog)                          \
    BUILT_IN( ptable,             23, ModulePtable,            Ptable_subjects,            1,  ptable)                            \
    BUILT_IN( ont_connections,    24, ModuleOntConnections,    OntConnections_subjects,    1,  ontconnections)                    \
    BUILT_IN( election,           25, ModuleElection,          Election_subjects,          2,  election)                          \
    BUILT_IN( file_mgr,           26, ModuleFileMgr,           FileMgr_subjects,           2,  filemgr)                           \
    BUILT_IN( firmware,           27, ModuleFirmware,          Firmware_subjects,          3,  firmware)                          \
    BUILT_IN( ipc_broker,         28, ModuleIpcBroker,         IpcBroker_subjects,         1,  ipcbroker)                         \
    BUILT_IN( ntpd_config,        29, ModuleNtpdConfig,        NtpdConfig_subjects,        3,  ntpdconfig)                        \
    BUILT_IN( slot_mgr,           30, ModuleSlotMgr,           SlotMgr_subjects,           3,  slotmgr)                           \
    BUILT_IN( snmpd_conf,         31, ModuleSnmpdConf,         SnmpdConf_subjects,         3,  snmpdconf)                         \
    BUILT_IN( system_mgr,         32, ModuleSystemMgr,         SystemMgr_subjects,         3,  systemmgr)                         \
    BUILT_IN( userd_conf,         33, ModuleUserdConf,         UserdConfig_subjects,       3,  userdconfig)                       \
    BUILT_IN( web_server_conf,    34, ModuleWebServerConf,     WebServerConf_subjects,     3,  webserverconf)                     \
    BUILT_IN( auto_backup_mgr,    35, ModuleAutoBackupMgr,     AutoBackupMgr_subjects,     5,  autobackupmgr)                     \
    BUILT_IN( config_mgr,         36, ModuleConfigMgr,         ConfigMgr_subjects,         3,  configmgr)                         \
    BUILT_IN( alarm,              37, ModuleAlarm,             Alarm_subjects,             1,  alarm)                             \
    BUILT_IN( log_config,         38, ModuleLogConfig,         LogConfig_subjects,         3,  logconfig)                         \
    STORED(   acs_custom,         39, ModuleAcsCustom,         AcsCustom_subjects,         3,  acscustom,         acs_custom, 77) \
    BUILT_IN( acs_config_dump,    40, ModuleAcsConfigDump,     AcsConfigDump_subjects,     1,  acsconfigdump)                     \
    BUILT_IN( acsd_config,        41, ModuleAcsdConfig,        AcsdConfig_subjects,        3,  acsdconfig)                        \
    BUILT_IN( aaa_conf,           42, ModuleAaaConf,           AaaConf_subjects,           3,  aaaconf)                           \
    STORED(   netserve,           43, ModuleNetserve,          Netserve_subjects,          2,  netserve,          netserve,   76)

// A descriptor starts with its subjects' levels; anything after them belongs to the configuration library.
#define XPON_ROW(row, number, M, S, count, lookup, read, field)                                              \
    inline constexpr ModuleEntry<M, S> row{module_of(number), count, get_##lookup##_subjects_from_index, read, field}; \
    static_assert(sizeof(M) >= sizeof(std::uint16_t) * (count));
#define XPON_STORED_ROW(row, number, M, S, count, lookup, reader, field)                                     \
    XPON_ROW(row, number, M, S, count, lookup, getRunDb_CommonGCfg_logging_module_##reader, field)
#define XPON_BUILT_IN_ROW(row, number, M, S, count, lookup)                                                  \
    XPON_ROW(row, number, M, S, count, lookup, defaults_only<init_##M>, 0)
XPON_CATALOGUE(XPON_STORED_ROW, XPON_BUILT_IN_ROW)
#undef XPON_BUILT_IN_ROW
#undef XPON_STORED_ROW
#undef XPON_ROW

#define XPON_NUMBER(row, number, ...) number,
inline constexpr auto numbers = std::to_array<int>({XPON_CATALOGUE(XPON_NUMBER, XPON_NUMBER)});
#undef XPON_NUMBER
static_assert(numbers.size() == 40);
static_assert(std::ranges::is_sorted(numbers, std::ranges::less_equal{}));

/// Calls `action` with each row, by ascending number.
template <class Action>
void for_each(Action const& action) {
#define XPON_CALL(row, ...) action(row);
    XPON_CATALOGUE(XPON_CALL, XPON_CALL)
#undef XPON_CALL
}
// clang-format on

} // namespace catalogue

} // namespace xpon::log_config
