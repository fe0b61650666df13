#pragma once

#include <array>
#include <string_view>

#include "xpon/log_config/zlog_files/add_modules.hpp"
#include "xpon/log_config/zlog_files/catalogue.hpp"

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
    {"DNA.conf",              catalogue::dna.module,               add_dna_module},
    {"ACS_CONFIG_DUMP.conf",  catalogue::acs_config_dump.module,   add_acs_config_dump_module},
    {"ACS_CUSTOM.conf",       catalogue::acs_custom.module,        add_acs_custom_module},
    {"ACSD-CONFIG.conf",      catalogue::acsd_config.module,       add_acsd_config_module},
    {"ALARMMGR.conf",         catalogue::alarm_mgr.module,         add_alarm_mgr_module},
    {"API-SERVICE.conf",      catalogue::api_service.module,       add_api_service_module},
    {"AUTOBACKUPMGR.conf",    catalogue::auto_backup_mgr.module,   add_auto_backup_module},
    {"BOOTLOADERUPG.conf",    catalogue::bootloader_upgrade.module, add_bootloader_upg_module},
    {"CLI.conf",              catalogue::cli.module,               add_cli_module},
    {"CONFIGMGR.conf",        catalogue::config_mgr.module,        add_config_mgr_module},
    {"ELECTION-MGR.conf",     catalogue::election.module,          add_election_module},
    {"FILE-MGR.conf",         catalogue::file_mgr.module,          add_file_mgr_module},
    {"FIRMWARE-MGR.conf",     catalogue::firmware.module,          add_firmware_module},
    {"IPCBROKER.conf",        catalogue::ipc_broker.module,        add_ipc_broker_module},
    {"NTPD-CONFIG.conf",      catalogue::ntpd_config.module,       add_ntpd_config_module},
    {"SESSIONMGR.conf",       catalogue::session_mgr.module,       add_session_mgr_module},
    {"SLOT-MGR.conf",         catalogue::slot_mgr.module,          add_slot_module},
    {"SNMP.conf",             catalogue::snmp.module,              add_snmp_module},
    {"SNMPD-CONFIG.conf",     catalogue::snmpd_conf.module,        add_snmpd_config_module},
    {"SWITCH.conf",           catalogue::switch_.module,           add_switch_module},
    {"SYSTEM-MGR.conf",       catalogue::system_mgr.module,        add_system_mgr_module},
    {"USERD-CONFIG.conf",     catalogue::userd_conf.module,        add_userd_config_module},
    {"WEBSERVER-CONFIG.conf", catalogue::web_server_conf.module,   add_web_config_module},
    {"LOG-CONFIG.conf",       catalogue::log_config.module,        add_log_config_module},
    {"AAA-CONFIG.conf",       catalogue::aaa_conf.module,          add_aaa_config_module},
    {"NETSERVE.conf",         catalogue::netserve.module,          add_netserve_config_module},
});
// clang-format on
static_assert(zlog_files.size() == 26);

} // namespace xpon::log_config
