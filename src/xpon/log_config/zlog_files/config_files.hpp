#pragma once

#include <array>
#include <string_view>

#include "xpon/log_config/zlog_files/add_modules.hpp"

namespace xpon::log_config {

/// One zlog file: its name, the module that reads it and hears of its changes, and what it holds.
struct ConfigFileEntry {
    std::string_view name;
    Modules_names module;
    Result<void> (*add_modules)(LogModules& modules, std::shared_ptr<cfgdb::CfgDbWrapper> const& cfgdb,
                                std::shared_ptr<ILogConfigGenerator> const& generator);
};

/// The zlog files of the board, in the order in which they are built.
// clang-format off
inline constexpr auto zlog_files = std::to_array<ConfigFileEntry>({
    {"DNA.conf",              Modules_names{1},  add_dna_module},
    {"ACS_CONFIG_DUMP.conf",  Modules_names{40}, add_acs_config_dump_module},
    {"ACS_CUSTOM.conf",       Modules_names{39}, add_acs_custom_module},
    {"ACSD-CONFIG.conf",      Modules_names{41}, add_acsd_config_module},
    {"ALARMMGR.conf",         Modules_names{0},  add_alarm_mgr_module},
    {"API-SERVICE.conf",      Modules_names{20}, add_api_service_module},
    {"AUTOBACKUPMGR.conf",    Modules_names{35}, add_auto_backup_module},
    {"BOOTLOADERUPG.conf",    Modules_names{21}, add_bootloader_upg_module},
    {"CLI.conf",              Modules_names{13}, add_cli_module},
    {"CONFIGMGR.conf",        Modules_names{36}, add_config_mgr_module},
    {"ELECTION-MGR.conf",     Modules_names{25}, add_election_module},
    {"FILE-MGR.conf",         Modules_names{26}, add_file_mgr_module},
    {"FIRMWARE-MGR.conf",     Modules_names{27}, add_firmware_module},
    {"IPCBROKER.conf",        Modules_names{28}, add_ipc_broker_module},
    {"NTPD-CONFIG.conf",      Modules_names{29}, add_ntpd_config_module},
    {"SESSIONMGR.conf",       Modules_names{11}, add_session_mgr_module},
    {"SLOT-MGR.conf",         Modules_names{30}, add_slot_module},
    {"SNMP.conf",             Modules_names{9},  add_snmp_module},
    {"SNMPD-CONFIG.conf",     Modules_names{31}, add_snmpd_config_module},
    {"SWITCH.conf",           Modules_names{16}, add_switch_module},
    {"SYSTEM-MGR.conf",       Modules_names{32}, add_system_mgr_module},
    {"USERD-CONFIG.conf",     Modules_names{33}, add_userd_config_module},
    {"WEBSERVER-CONFIG.conf", Modules_names{34}, add_web_config_module},
    {"LOG-CONFIG.conf",       Modules_names{38}, add_log_config_module},
    {"AAA-CONFIG.conf",       Modules_names{42}, add_aaa_config_module},
    {"NETSERVE.conf",         Modules_names{43}, add_netserve_config_module},
});
// clang-format on
static_assert(zlog_files.size() == 26);

} // namespace xpon::log_config
