#pragma once

/* As the header of a board's own configuration library may look: everything is plain C, the records have
 * other members than those in platform/cfgdb and go on behind their levels. */

#include <stdint.h>

enum Modules_names { FIRST_MODULE = 0, LAST_MODULE = 43 };

enum Fsm_subjects { FSM_SELF, FSM_RESYNC = 10 };
struct ModuleFsmPon {
    uint16_t words[4124];
    uint32_t checksum;
};

/* clang-format off */
#define RECORD(record, subjects, count)                                                                      \
    enum subjects { subjects##_FIRST, subjects##_LAST = (count) - 1 };                                        \
    struct record {                                                                                          \
        uint16_t first_level;                                                                                \
        uint16_t other_levels[count];                                                                        \
        uint32_t checksum;                                                                                   \
    };
RECORD(ModuleAlarmMgr,          Alarmmgr_subjects,          1)
RECORD(ModuleDna,               Dna_subjects,               7)
RECORD(ModuleIgmp,              Igmp_subjects,              7)
RECORD(ModuleDhcpRa,            Dhcpra_subjects,            5)
RECORD(ModuleIpsg,              Ipsg_subjects,              3)
RECORD(ModulePppoeIa,           Pppoe_ia_subjects,          5)
RECORD(ModuleLldp,              Lldp_subjects,              5)
RECORD(ModuleL3Agent,           L3_agent_subjects,          2)
RECORD(ModuleSnmp,              Snmp_subjects,              7)
RECORD(ModuleSessionMgr,        Sessionmgr_subjects,        2)
RECORD(ModuleCli,               Cli_subjects,               10)
RECORD(ModuleSwitch,            Switch_subjects,            5)
RECORD(ModuleLacp,              Lacp_subjects,              5)
RECORD(ModuleDatapath,          Datapath_subjects,          3)
RECORD(ModuleArp,               Arp_subjects,               4)
RECORD(ModuleAcsCustom,         AcsCustom_subjects,         3)
RECORD(ModuleNetserve,          Netserve_subjects,          2)
RECORD(ModuleApiService,        ApiService_subjects,        4)
RECORD(ModuleBootloaderUpgrade, BootloaderUpgrade_subjects, 1)
RECORD(ModuleWatchdog,          Watchdog_subjects,          1)
RECORD(ModulePtable,            Ptable_subjects,            1)
RECORD(ModuleOntConnections,    OntConnections_subjects,    1)
RECORD(ModuleElection,          Election_subjects,          2)
RECORD(ModuleFileMgr,           FileMgr_subjects,           2)
RECORD(ModuleFirmware,          Firmware_subjects,          3)
RECORD(ModuleIpcBroker,         IpcBroker_subjects,         1)
RECORD(ModuleNtpdConfig,        NtpdConfig_subjects,        3)
RECORD(ModuleSlotMgr,           SlotMgr_subjects,           3)
RECORD(ModuleSnmpdConf,         SnmpdConf_subjects,         3)
RECORD(ModuleSystemMgr,         SystemMgr_subjects,         3)
RECORD(ModuleUserdConf,         UserdConfig_subjects,       3)
RECORD(ModuleWebServerConf,     WebServerConf_subjects,     3)
RECORD(ModuleAutoBackupMgr,     AutoBackupMgr_subjects,     5)
RECORD(ModuleConfigMgr,         ConfigMgr_subjects,         3)
RECORD(ModuleAlarm,             Alarm_subjects,             1)
RECORD(ModuleLogConfig,         LogConfig_subjects,         3)
RECORD(ModuleAcsConfigDump,     AcsConfigDump_subjects,     1)
RECORD(ModuleAcsdConfig,        AcsdConfig_subjects,        3)
RECORD(ModuleAaaConf,           AaaConf_subjects,           3)
#undef RECORD

#ifdef __cplusplus
extern "C" {
#endif
#define READER(record, name) \
    int getRunDb_CommonGCfg_logging_module_##name(void const* db, struct record* out, unsigned short const* key);
#define DEFAULTS(record) int init_##record(struct record* out);
#define LOOKUP(subjects, name) int get_##name##_subjects_from_index(char* out, enum subjects subject);
READER(ModuleFsmPon, fsm_pon) READER(ModuleAlarmMgr, alarmmgr) READER(ModuleDna, dna) READER(ModuleIgmp, igmp)
READER(ModuleDhcpRa, dhcpra) READER(ModuleIpsg, ipsg) READER(ModulePppoeIa, pppoe_ia) READER(ModuleLldp, lldp)
READER(ModuleL3Agent, l3_agent) READER(ModuleSnmp, snmp) READER(ModuleSessionMgr, sessionmgr) READER(ModuleCli, cli)
READER(ModuleSwitch, switch) READER(ModuleLacp, lacp) READER(ModuleDatapath, datapath) READER(ModuleArp, arp)
READER(ModuleAcsCustom, acs_custom) READER(ModuleNetserve, netserve)
DEFAULTS(ModuleApiService) DEFAULTS(ModuleBootloaderUpgrade) DEFAULTS(ModuleWatchdog) DEFAULTS(ModulePtable)
DEFAULTS(ModuleOntConnections) DEFAULTS(ModuleElection) DEFAULTS(ModuleFileMgr) DEFAULTS(ModuleFirmware)
DEFAULTS(ModuleIpcBroker) DEFAULTS(ModuleNtpdConfig) DEFAULTS(ModuleSlotMgr) DEFAULTS(ModuleSnmpdConf)
DEFAULTS(ModuleSystemMgr) DEFAULTS(ModuleUserdConf) DEFAULTS(ModuleWebServerConf) DEFAULTS(ModuleAutoBackupMgr)
DEFAULTS(ModuleConfigMgr) DEFAULTS(ModuleAlarm) DEFAULTS(ModuleLogConfig) DEFAULTS(ModuleAcsConfigDump)
DEFAULTS(ModuleAcsdConfig) DEFAULTS(ModuleAaaConf)
LOOKUP(Fsm_subjects, fsm) LOOKUP(Alarmmgr_subjects, alarmmgr) LOOKUP(Dna_subjects, dna) LOOKUP(Igmp_subjects, igmp)
LOOKUP(Dhcpra_subjects, dhcpra) LOOKUP(Ipsg_subjects, ipsg) LOOKUP(Pppoe_ia_subjects, pppoe_ia)
LOOKUP(Lldp_subjects, lldp) LOOKUP(L3_agent_subjects, l3_agent) LOOKUP(Snmp_subjects, snmp)
LOOKUP(Sessionmgr_subjects, sessionmgr) LOOKUP(Cli_subjects, cli) LOOKUP(Switch_subjects, switch)
LOOKUP(Lacp_subjects, lacp) LOOKUP(Datapath_subjects, datapath) LOOKUP(Arp_subjects, arp)
LOOKUP(AcsCustom_subjects, acscustom) LOOKUP(Netserve_subjects, netserve) LOOKUP(ApiService_subjects, apiservice)
LOOKUP(BootloaderUpgrade_subjects, bootloaderupgrade) LOOKUP(Watchdog_subjects, watchdog)
LOOKUP(Ptable_subjects, ptable) LOOKUP(OntConnections_subjects, ontconnections) LOOKUP(Election_subjects, election)
LOOKUP(FileMgr_subjects, filemgr) LOOKUP(Firmware_subjects, firmware) LOOKUP(IpcBroker_subjects, ipcbroker)
LOOKUP(NtpdConfig_subjects, ntpdconfig) LOOKUP(SlotMgr_subjects, slotmgr) LOOKUP(SnmpdConf_subjects, snmpdconf)
LOOKUP(SystemMgr_subjects, systemmgr) LOOKUP(UserdConfig_subjects, userdconfig)
LOOKUP(WebServerConf_subjects, webserverconf) LOOKUP(AutoBackupMgr_subjects, autobackupmgr)
LOOKUP(ConfigMgr_subjects, configmgr) LOOKUP(Alarm_subjects, alarm) LOOKUP(LogConfig_subjects, logconfig)
LOOKUP(AcsConfigDump_subjects, acsconfigdump) LOOKUP(AcsdConfig_subjects, acsdconfig)
LOOKUP(AaaConf_subjects, aaaconf)
#undef READER
#undef DEFAULTS
#undef LOOKUP
int get_modules_names_from_index(char* out, enum Modules_names module);
#ifdef __cplusplus
}
#endif
/* clang-format on */
