/* Every plain function of the configuration library that the daemon calls, so by name as the linker sees
 * them. */

#include <stdint.h>
#include <stdio.h>

/* The defaults of a record. */
#define INIT(record)                                                                                         \
    int init_##record(void* out) {                                                                           \
        (void)out;                                                                                           \
        return 0;                                                                                            \
    }
/* What is stored of a record, merged with its defaults. */
#define READER(name)                                                                                         \
    int getRunDb_CommonGCfg_logging_##name(void const* db, void* out, unsigned short const* key) {           \
        (void)db, (void)out, (void)key;                                                                      \
        return 0;                                                                                            \
    }
/* The name behind a number. */
#define LOOKUP(name)                                                                                         \
    int get_##name##_from_index(char* out, unsigned number) {                                                \
        return snprintf(out, 15, number == 0 ? "SELF" : "N%u", number) > 0 ? 0 : -1;                         \
    }
/* A record with the level 1 (error) in one word: those that module_files.cpp shows. */
static void set_error(void* record, unsigned word) {
    ((uint16_t*)record)[word] = 1;
}

int getRunDb_CommonGCfg_logging_module_switch(void const* db, void* out, unsigned short const* key) {
    (void)db, (void)key;
    set_error(out, 4);
    return 0;
}

int getRunDb_CommonGCfg_logging_module_fsm_pon(void const* db, void* out, unsigned short const* key) {
    static unsigned const words[] = {10, 11, 12, 21, 27, 28, 286, 4123};
    (void)db, (void)key;
    for (unsigned place = 0; place < sizeof words / sizeof *words; ++place) {
        set_error(out, words[place]);
    }
    return 0;
}

/* clang-format off */
INIT(ModuleAaaConf) INIT(ModuleAcsConfigDump) INIT(ModuleAcsdConfig) INIT(ModuleAlarm) INIT(ModuleApiService)
INIT(ModuleAutoBackupMgr) INIT(ModuleBootloaderUpgrade) INIT(ModuleConfigMgr) INIT(ModuleElection)
INIT(ModuleFileMgr) INIT(ModuleFirmware) INIT(ModuleIpcBroker) INIT(ModuleLogConfig) INIT(ModuleNtpdConfig)
INIT(ModuleOntConnections) INIT(ModulePtable) INIT(ModuleSlotMgr) INIT(ModuleSnmpdConf) INIT(ModuleSystemMgr)
INIT(ModuleUserdConf) INIT(ModuleWatchdog) INIT(ModuleWebServerConf) INIT(SyslogNetworkDest)
INIT(SyslogSettings)

READER(module_acs_custom) READER(module_alarmmgr) READER(module_arp) READER(module_cli)
READER(module_datapath) READER(module_dhcpra) READER(module_dna) READER(module_igmp)
READER(module_ipsg) READER(module_l3_agent) READER(module_lacp) READER(module_lldp) READER(module_netserve)
READER(module_pppoe_ia) READER(module_sessionmgr) READER(module_snmp) READER(syslog_console) READER(syslog_file) READER(syslog_kernel) READER(syslog_remote) READER(syslog_rsh)

LOOKUP(aaaconf_subjects) LOOKUP(acsconfigdump_subjects) LOOKUP(acscustom_subjects) LOOKUP(acsdconfig_subjects)
LOOKUP(alarm_subjects) LOOKUP(alarmmgr_subjects) LOOKUP(apiservice_subjects) LOOKUP(arp_subjects)
LOOKUP(autobackupmgr_subjects) LOOKUP(bootloaderupgrade_subjects) LOOKUP(cli_subjects)
LOOKUP(configmgr_subjects) LOOKUP(datapath_subjects) LOOKUP(dhcpra_subjects) LOOKUP(dna_subjects)
LOOKUP(election_subjects) LOOKUP(filemgr_subjects) LOOKUP(firmware_subjects) LOOKUP(fsm_subjects)
LOOKUP(igmp_subjects) LOOKUP(ipcbroker_subjects) LOOKUP(ipsg_subjects) LOOKUP(l3_agent_subjects)
LOOKUP(lacp_subjects) LOOKUP(lldp_subjects) LOOKUP(logconfig_subjects) LOOKUP(modules_names)
LOOKUP(netserve_subjects) LOOKUP(ntpdconfig_subjects) LOOKUP(ontconnections_subjects)
LOOKUP(pppoe_ia_subjects) LOOKUP(ptable_subjects) LOOKUP(sessionmgr_subjects) LOOKUP(slotmgr_subjects)
LOOKUP(snmp_subjects) LOOKUP(snmpdconf_subjects) LOOKUP(switch_subjects) LOOKUP(systemmgr_subjects)
LOOKUP(userdconfig_subjects) LOOKUP(watchdog_subjects) LOOKUP(webserverconf_subjects)
    /* clang-format on */
