#pragma once

#include <array>
#include <string_view>

#include "xpon/log_config/zlog/module_number.hpp"
#include "xpon/log_config/zlog_files/add_modules.hpp"

namespace xpon::log_config {

/// One zlog file: its name, the module that reads it and is told about changes, and the modules in it.
struct ConfigFileEntry {
    std::string_view name;
    Modules_names module;
    Result<void> (*add_modules)(LogModules& modules, std::shared_ptr<cfgdb::CfgDbWrapper> const& cfgdb,
                                std::shared_ptr<ILogConfigGenerator> const& generator);
};

/// The zlog files of the board, in the order in which they are built.
// clang-format off
inline constexpr auto zlog_files = std::to_array<ConfigFileEntry>({
    {"DNA.conf",              module_of(1),  add_dna_module},
    {"ACS_CONFIG_DUMP.conf",  module_of(40), add_acs_config_dump_module},
    {"ACS_CUSTOM.conf",       module_of(39), add_acs_custom_module},
    {"ACSD-CONFIG.conf",      module_of(41), add_acsd_config_module},
    {"ALARMMGR.conf",         module_of(0),  add_alarm_mgr_module},
    {"API-SERVICE.conf",      module_of(20), add_api_service_module},
    {"AUTOBACKUPMGR.conf",    module_of(35), add_auto_backup_module},
    {"BOOTLOADERUPG.conf",    module_of(21), add_bootloader_upg_module},
    {"CLI.conf",              module_of(13), add_cli_module},
    {"CONFIGMGR.conf",        module_of(36), add_config_mgr_module},
    {"ELECTION-MGR.conf",     module_of(25), add_election_module},
    {"FILE-MGR.conf",         module_of(26), add_file_mgr_module},
    {"FIRMWARE-MGR.conf",     module_of(27), add_firmware_module},
    {"IPCBROKER.conf",        module_of(28), add_ipc_broker_module},
    {"NTPD-CONFIG.conf",      module_of(29), add_ntpd_config_module},
    {"SESSIONMGR.conf",       module_of(11), add_session_mgr_module},
    {"SLOT-MGR.conf",         module_of(30), add_slot_module},
    {"SNMP.conf",             module_of(9),  add_snmp_module},
    {"SNMPD-CONFIG.conf",     module_of(31), add_snmpd_config_module},
    {"SWITCH.conf",           module_of(16), add_switch_module},
    {"SYSTEM-MGR.conf",       module_of(32), add_system_mgr_module},
    {"USERD-CONFIG.conf",     module_of(33), add_userd_config_module},
    {"WEBSERVER-CONFIG.conf", module_of(34), add_web_config_module},
    {"LOG-CONFIG.conf",       module_of(38), add_log_config_module},
    {"AAA-CONFIG.conf",       module_of(42), add_aaa_config_module},
    {"NETSERVE.conf",         module_of(43), add_netserve_config_module},
});
// clang-format on
static_assert(zlog_files.size() == 26);

} // namespace xpon::log_config
