#pragma once

#include <functional>
#include <memory>

#include "core/result.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"
#include "xpon/log_config/zlog/i_log_config_generator.hpp"
#include "xpon/log_config/zlog/i_log_module.hpp"

namespace xpon::log_config {

/// Reads the descriptors of the modules of one zlog file from the database and adds the modules to a map.
/// Stops at the first module that fails and returns `CommonError`; modules added before stay in the map.
/// Throws what the constructors of the module objects throw.
using GenerateModulesFn =
    std::function<Result<void>(LogModules& modules, std::shared_ptr<cfgdb::CfgDbWrapper> const& cfgdb,
                               std::shared_ptr<ILogConfigGenerator> const& generator)>;

#define XPON_ADD_MODULES(name)                                                                               \
    Result<void> name(LogModules& modules, std::shared_ptr<cfgdb::CfgDbWrapper> const& cfgdb,                \
                      std::shared_ptr<ILogConfigGenerator> const& generator)

XPON_ADD_MODULES(add_dna_module);
XPON_ADD_MODULES(add_acs_config_dump_module);
XPON_ADD_MODULES(add_acs_custom_module);
XPON_ADD_MODULES(add_acsd_config_module);
XPON_ADD_MODULES(add_alarm_mgr_module);
XPON_ADD_MODULES(add_api_service_module);
XPON_ADD_MODULES(add_auto_backup_module);
XPON_ADD_MODULES(add_bootloader_upg_module);
XPON_ADD_MODULES(add_cli_module);
XPON_ADD_MODULES(add_config_mgr_module);
XPON_ADD_MODULES(add_election_module);
XPON_ADD_MODULES(add_file_mgr_module);
XPON_ADD_MODULES(add_firmware_module);
XPON_ADD_MODULES(add_ipc_broker_module);
XPON_ADD_MODULES(add_ntpd_config_module);
XPON_ADD_MODULES(add_session_mgr_module);
XPON_ADD_MODULES(add_slot_module);
XPON_ADD_MODULES(add_snmp_module);
XPON_ADD_MODULES(add_snmpd_config_module);
XPON_ADD_MODULES(add_switch_module);
XPON_ADD_MODULES(add_system_mgr_module);
XPON_ADD_MODULES(add_userd_config_module);
XPON_ADD_MODULES(add_web_config_module);
XPON_ADD_MODULES(add_log_config_module);
XPON_ADD_MODULES(add_aaa_config_module);
XPON_ADD_MODULES(add_netserve_config_module);

} // namespace xpon::log_config
