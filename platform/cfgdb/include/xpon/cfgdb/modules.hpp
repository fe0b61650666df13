#pragma once

// The logging modules: identifiers, descriptor records, subjects, and the functions that read, default and
// name them. The readers follow the rules in syslog_settings.hpp. Levels: 0 critical ... 5 debug.

#include <cstdint>

/// Identifiers of the logging modules. No module has 10, 12, 14 or 15.
enum Modules_names : std::uint32_t {};

// NOLINTBEGIN(bugprone-macro-parentheses): the arguments are types and names

/// A module's subjects are numbered from 0; its descriptor holds one 16-bit level per subject, in that order.
#define XPON_MODULE_TYPES(Descriptor, Subjects, count)                                                       \
    enum Subjects : std::uint32_t {};                                                                        \
    struct Descriptor {                                                                                      \
        std::uint16_t level[count];                                                                          \
    };                                                                                                       \
    static_assert(sizeof(Descriptor) == sizeof(std::uint16_t) * (count));

/// A module whose levels are stored: defaults and reader.
#define XPON_STORED_MODULE(Descriptor, Subjects, count, reader_name, lookup_name)                            \
    XPON_MODULE_TYPES(Descriptor, Subjects, count)                                                           \
    XPON_STORED_MODULE_FUNCTIONS(Descriptor, Subjects, reader_name, lookup_name)

#define XPON_STORED_MODULE_FUNCTIONS(Descriptor, Subjects, reader_name, lookup_name)                         \
    extern "C" int init_##Descriptor(Descriptor* out);                                                       \
    extern "C" int getRunDb_CommonGCfg_logging_module_##reader_name(void const* db, Descriptor* out,         \
                                                                    unsigned short const* key);              \
    extern "C" int get_##lookup_name##_subjects_from_index(char* out, Subjects subject);

/// A module without stored settings: its levels are the built-in defaults.
#define XPON_BUILT_IN_MODULE(Descriptor, Subjects, count, lookup_name)                                       \
    XPON_MODULE_TYPES(Descriptor, Subjects, count)                                                           \
    extern "C" int init_##Descriptor(Descriptor* out);                                                       \
    extern "C" int get_##lookup_name##_subjects_from_index(char* out, Subjects subject);

// NOLINTEND(bugprone-macro-parentheses)

/// The PON state machines. Each of the 16 ports has 256 ONTs, and each ONT has its own level.
enum Fsm_subjects : std::uint32_t {};
struct ModuleFsmPon {
    std::uint16_t level[11];
    std::uint16_t olt;
    std::uint16_t port[16];
    std::uint16_t ont[16][256];
};
static_assert(sizeof(ModuleFsmPon) == 8248);

// clang-format off
XPON_STORED_MODULE(ModuleAlarmMgr,  Alarmmgr_subjects,    1,  alarmmgr,   alarmmgr)
XPON_STORED_MODULE(ModuleDna,       Dna_subjects,         7,  dna,        dna)
XPON_STORED_MODULE_FUNCTIONS(ModuleFsmPon, Fsm_subjects,      fsm_pon,    fsm)
XPON_STORED_MODULE(ModuleIgmp,      Igmp_subjects,        7,  igmp,       igmp)
XPON_STORED_MODULE(ModuleDhcpRa,    Dhcpra_subjects,      5,  dhcpra,     dhcpra)
XPON_STORED_MODULE(ModuleIpsg,      Ipsg_subjects,        3,  ipsg,       ipsg)
XPON_STORED_MODULE(ModulePppoeIa,   Pppoe_ia_subjects,    5,  pppoe_ia,   pppoe_ia)
XPON_STORED_MODULE(ModuleLldp,      Lldp_subjects,        5,  lldp,       lldp)
XPON_STORED_MODULE(ModuleL3Agent,   L3_agent_subjects,    2,  l3_agent,   l3_agent)
XPON_STORED_MODULE(ModuleSnmp,      Snmp_subjects,        7,  snmp,       snmp)
XPON_STORED_MODULE(ModuleSessionMgr, Sessionmgr_subjects, 2,  sessionmgr, sessionmgr)
XPON_STORED_MODULE(ModuleCli,       Cli_subjects,         10, cli,        cli)
XPON_STORED_MODULE(ModuleSwitch,    Switch_subjects,      5,  switch,     switch)
XPON_STORED_MODULE(ModuleLacp,      Lacp_subjects,        5,  lacp,       lacp)
XPON_STORED_MODULE(ModuleDatapath,  Datapath_subjects,    3,  datapath,   datapath)
XPON_STORED_MODULE(ModuleArp,       Arp_subjects,         4,  arp,        arp)
XPON_STORED_MODULE(ModuleAcsCustom, AcsCustom_subjects,   3,  acs_custom, acscustom)
XPON_STORED_MODULE(ModuleNetserve,  Netserve_subjects,    2,  netserve,   netserve)

XPON_BUILT_IN_MODULE(ModuleApiService,        ApiService_subjects,        4, apiservice)
XPON_BUILT_IN_MODULE(ModuleBootloaderUpgrade, BootloaderUpgrade_subjects, 1, bootloaderupgrade)
XPON_BUILT_IN_MODULE(ModuleWatchdog,          Watchdog_subjects,          1, watchdog)
XPON_BUILT_IN_MODULE(ModulePtable,            Ptable_subjects,            1, ptable)
XPON_BUILT_IN_MODULE(ModuleOntConnections,    OntConnections_subjects,    1, ontconnections)
XPON_BUILT_IN_MODULE(ModuleElection,          Election_subjects,          2, election)
XPON_BUILT_IN_MODULE(ModuleFileMgr,           FileMgr_subjects,           2, filemgr)
XPON_BUILT_IN_MODULE(ModuleFirmware,          Firmware_subjects,          3, firmware)
XPON_BUILT_IN_MODULE(ModuleIpcBroker,         IpcBroker_subjects,         1, ipcbroker)
XPON_BUILT_IN_MODULE(ModuleNtpdConfig,        NtpdConfig_subjects,        3, ntpdconfig)
XPON_BUILT_IN_MODULE(ModuleSlotMgr,           SlotMgr_subjects,           3, slotmgr)
XPON_BUILT_IN_MODULE(ModuleSnmpdConf,         SnmpdConf_subjects,         3, snmpdconf)
XPON_BUILT_IN_MODULE(ModuleSystemMgr,         SystemMgr_subjects,         3, systemmgr)
XPON_BUILT_IN_MODULE(ModuleUserdConf,         UserdConfig_subjects,       3, userdconfig)
XPON_BUILT_IN_MODULE(ModuleWebServerConf,     WebServerConf_subjects,     3, webserverconf)
XPON_BUILT_IN_MODULE(ModuleAutoBackupMgr,     AutoBackupMgr_subjects,     5, autobackupmgr)
XPON_BUILT_IN_MODULE(ModuleConfigMgr,         ConfigMgr_subjects,         3, configmgr)
XPON_BUILT_IN_MODULE(ModuleAlarm,             Alarm_subjects,             1, alarm)
XPON_BUILT_IN_MODULE(ModuleLogConfig,         LogConfig_subjects,         3, logconfig)
XPON_BUILT_IN_MODULE(ModuleAcsConfigDump,     AcsConfigDump_subjects,     1, acsconfigdump)
XPON_BUILT_IN_MODULE(ModuleAcsdConfig,        AcsdConfig_subjects,        3, acsdconfig)
XPON_BUILT_IN_MODULE(ModuleAaaConf,           AaaConf_subjects,           3, aaaconf)
// clang-format on

#undef XPON_MODULE_TYPES
#undef XPON_STORED_MODULE
#undef XPON_STORED_MODULE_FUNCTIONS
#undef XPON_BUILT_IN_MODULE

/// Writes the stem of a module's category names, in upper case and zero-terminated, into the caller's buffer
/// of 15 bytes. The `get_*_subjects_from_index` functions do the same for the name of a subject. They return
/// 0. For a number outside the catalogue or a null buffer they return -1 with `errno` EINVAL and leave the
/// buffer unchanged.
extern "C" int get_modules_names_from_index(char* out, Modules_names module);
