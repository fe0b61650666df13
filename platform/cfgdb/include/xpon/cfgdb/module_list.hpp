#pragma once

// The one list of the logging modules. Everything that exists once per module is generated from it: in
// modules.hpp the types and the declarations, in src/ the module table, the settings, and the functions that
// read, default and name.

// STORED(value, descriptor, subjects type, name of reader, name of lookup, field identifier, stem,
// subjects...) BUILT_IN(value, descriptor, subjects type, name of lookup, stem, subjects...)
// clang-format off
#define XPON_MODULES(STORED, BUILT_IN)                                                                                          \
    STORED(   0, ModuleAlarmMgr,          Alarmmgr_subjects,   alarmmgr,   alarmmgr,   58, "ALARMMGR",  "SELF")                 \
    STORED(   1, ModuleDna,               Dna_subjects,        dna,        dna,        59, "DNA",       "SELF", "IPC", "CFGDB", "PORT", "VLAN", "QOS", "EVENT") \
    STORED(   2, ModuleFsmPon,            Fsm_subjects,        fsm_pon,    fsm,        60, "FSM",       "SELF", "ONT", "PORT", "OMCI", "PLOAM", "MIB", "AUTH", "PROFILE", "SERVICE", "ALARM", "RESYNC") \
    STORED(   3, ModuleIgmp,              Igmp_subjects,       igmp,       igmp,       61, "IGMP",      "SELF", "RX", "TX", "PROXY", "QUERIER", "GROUP", "MVLAN") \
    STORED(   4, ModuleDhcpRa,            Dhcpra_subjects,     dhcpra,     dhcpra,     62, "DHCPRA",    "SELF", "RX", "TX", "LEASE", "OPT82") \
    STORED(   5, ModuleIpsg,              Ipsg_subjects,       ipsg,       ipsg,       64, "IPSG",      "SELF", "BIND", "FILTER") \
    STORED(   6, ModulePppoeIa,           Pppoe_ia_subjects,   pppoe_ia,   pppoe_ia,   65, "PPPOEIA",   "SELF", "RX", "TX", "SESS", "TAG") \
    STORED(   7, ModuleLldp,              Lldp_subjects,       lldp,       lldp,       66, "LLDP",      "SELF", "RX", "TX", "NEIGHBOR", "TLV") \
    STORED(   8, ModuleL3Agent,           L3_agent_subjects,   l3_agent,   l3_agent,   68, "L3AGENT",   "SELF", "ROUTE")        \
    STORED(   9, ModuleSnmp,              Snmp_subjects,       snmp,       snmp,       69, "SNMP",      "SELF", "IPC", "CFGDB", "GET", "SET", "TRAP", "CUSTOM_1LAYER") \
    STORED(  11, ModuleSessionMgr,        Sessionmgr_subjects, sessionmgr, sessionmgr, 71, "SESSMGR",   "SELF", "IPC")          \
    STORED(  13, ModuleCli,               Cli_subjects,        cli,        cli,        73, "CLI",       "SELF", "IPC", "CFGDB", "PARSER", "SHOW", "CONFIG", "EXEC", "AUTH", "HISTORY", "CUSTOM_1LAYER") \
    STORED(  16, ModuleSwitch,            Switch_subjects,     switch,     switch,     78, "SWITCH",    "SELF", "IPC", "CFGDB", "PORT", "1LAYER") \
    STORED(  17, ModuleLacp,              Lacp_subjects,       lacp,       lacp,       67, "LACP",      "SELF", "RX", "TX", "MUX", "PARTNER") \
    STORED(  18, ModuleDatapath,          Datapath_subjects,   datapath,   datapath,   79, "DATAPATH",  "SELF", "FLOW", "METER") \
    STORED(  19, ModuleArp,               Arp_subjects,        arp,        arp,        63, "ARP",       "SELF", "RX", "TX", "PROXY") \
    BUILT_IN(20, ModuleApiService,        ApiService_subjects,        apiservice,          "API-SVC",   "SELF", "IPC", "CFGDB", "CUSTOM_1LAYER") \
    BUILT_IN(21, ModuleBootloaderUpgrade, BootloaderUpgrade_subjects, bootloaderupgrade,   "BOOTUPG",   "SELF")                 \
    BUILT_IN(22, ModuleWatchdog,          Watchdog_subjects,          watchdog,            "WATCHDOG",  "SELF")                 \
    BUILT_IN(23, ModulePtable,            Ptable_subjects,            ptable,              "PTABLE",    "SELF")                 \
    BUILT_IN(24, ModuleOntConnections,    OntConnections_subjects,    ontconnections,      "ONTCONN",   "SELF")                 \
    BUILT_IN(25, ModuleElection,          Election_subjects,          election,            "ELECTION",  "SELF", "IPC")          \
    BUILT_IN(26, ModuleFileMgr,           FileMgr_subjects,           filemgr,             "FILE-MGR",  "SELF", "IPC")          \
    BUILT_IN(27, ModuleFirmware,          Firmware_subjects,          firmware,            "FW-MGR",    "SELF", "IPC", "CFGDB") \
    BUILT_IN(28, ModuleIpcBroker,         IpcBroker_subjects,         ipcbroker,           "BROKER",    "SELF")                 \
    BUILT_IN(29, ModuleNtpdConfig,        NtpdConfig_subjects,        ntpdconfig,          "NTPD-CFG",  "SELF", "IPC", "CFGDB") \
    BUILT_IN(30, ModuleSlotMgr,           SlotMgr_subjects,           slotmgr,             "SLOT-MGR",  "SELF", "IPC", "CFGDB") \
    BUILT_IN(31, ModuleSnmpdConf,         SnmpdConf_subjects,         snmpdconf,           "SNMPDCFG",  "SELF", "IPC", "CFGDB") \
    BUILT_IN(32, ModuleSystemMgr,         SystemMgr_subjects,         systemmgr,           "SYS-MGR",   "SELF", "IPC", "CFGDB") \
    BUILT_IN(33, ModuleUserdConf,         UserdConfig_subjects,       userdconfig,         "USERDCFG",  "SELF", "IPC", "CFGDB") \
    BUILT_IN(34, ModuleWebServerConf,     WebServerConf_subjects,     webserverconf,       "WEB-CFG",   "SELF", "IPC", "CFGDB") \
    BUILT_IN(35, ModuleAutoBackupMgr,     AutoBackupMgr_subjects,     autobackupmgr,       "AUTOBKP",   "SELF", "IPC", "CFGDB", "XFER", "CUSTOM_1LAYER") \
    BUILT_IN(36, ModuleConfigMgr,         ConfigMgr_subjects,         configmgr,           "CFG-MGR",   "SELF", "IPC", "CFGDB") \
    BUILT_IN(37, ModuleAlarm,             Alarm_subjects,             alarm,               "ALARM",     "SELF")                 \
    BUILT_IN(38, ModuleLogConfig,         LogConfig_subjects,         logconfig,           "LOG-CFG",   "SELF", "IPC", "CFGDB") \
    STORED(  39, ModuleAcsCustom,         AcsCustom_subjects,  acs_custom, acscustom,  77, "ACS_CUST",  "SELF", "IPC", "CFGDB") \
    BUILT_IN(40, ModuleAcsConfigDump,     AcsConfigDump_subjects,     acsconfigdump,       "ACS_DUMP",  "SELF")                 \
    BUILT_IN(41, ModuleAcsdConfig,        AcsdConfig_subjects,        acsdconfig,          "ACSD-CFG",  "SELF", "IPC", "CFGDB") \
    BUILT_IN(42, ModuleAaaConf,           AaaConf_subjects,           aaaconf,             "AAA-CFG",   "SELF", "IPC", "CFGDB") \
    STORED(  43, ModuleNetserve,          Netserve_subjects,   netserve,   netserve,   76, "NETSERVE",  "SELF", "IPC")
// clang-format on
