#pragma once

// The plain readers behind one form, so that a test can go through all of them.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "xpon/cfgdb/modules.hpp"
#include "xpon/cfgdb/syslog_settings.hpp"

namespace xpon::cfgdb {

using Bytes = std::vector<std::uint8_t>;

struct Reader {
    std::string prefix; // of the settings in its record
    std::size_t size;   // of its record
    std::function<int(void const* db, void* out, unsigned short const* key)> read;
    std::function<int(void* out)> init; // empty where there is none
};

template <class T>
Reader reader(std::string prefix, int (*read)(void const*, T*, unsigned short const*),
              int (*init)(T*) = nullptr) {
    Reader made{std::move(prefix),
                sizeof(T),
                [read](void const* db, void* out, unsigned short const* key) {
                    return read(db, static_cast<T*>(out), key);
                },
                {}};
    if (init != nullptr) {
        made.init = [init](void* out) { return init(static_cast<T*>(out)); };
    }
    return made;
}

inline std::vector<Reader> all_readers() {
    // clang-format off
    return {
        reader("syslog.file.",       getRunDb_CommonGCfg_logging_syslog_file),
        reader("syslog.console.",    getRunDb_CommonGCfg_logging_syslog_console),
        reader("syslog.remote.",     getRunDb_CommonGCfg_logging_syslog_remote, init_SyslogNetworkDest),
        reader("syslog.kernel.",     getRunDb_CommonGCfg_logging_syslog_kernel),
        reader("syslog.rsh.",        getRunDb_CommonGCfg_logging_syslog_rsh),
        reader("module.alarmmgr.",   getRunDb_CommonGCfg_logging_module_alarmmgr,   init_ModuleAlarmMgr),
        reader("module.dna.",        getRunDb_CommonGCfg_logging_module_dna,        init_ModuleDna),
        reader("module.fsm_pon.",    getRunDb_CommonGCfg_logging_module_fsm_pon,    init_ModuleFsmPon),
        reader("module.igmp.",       getRunDb_CommonGCfg_logging_module_igmp,       init_ModuleIgmp),
        reader("module.dhcpra.",     getRunDb_CommonGCfg_logging_module_dhcpra,     init_ModuleDhcpRa),
        reader("module.arp.",        getRunDb_CommonGCfg_logging_module_arp,        init_ModuleArp),
        reader("module.ipsg.",       getRunDb_CommonGCfg_logging_module_ipsg,       init_ModuleIpsg),
        reader("module.pppoe_ia.",   getRunDb_CommonGCfg_logging_module_pppoe_ia,   init_ModulePppoeIa),
        reader("module.lldp.",       getRunDb_CommonGCfg_logging_module_lldp,       init_ModuleLldp),
        reader("module.lacp.",       getRunDb_CommonGCfg_logging_module_lacp,       init_ModuleLacp),
        reader("module.l3_agent.",   getRunDb_CommonGCfg_logging_module_l3_agent,   init_ModuleL3Agent),
        reader("module.snmp.",       getRunDb_CommonGCfg_logging_module_snmp,       init_ModuleSnmp),
        reader("module.sessionmgr.", getRunDb_CommonGCfg_logging_module_sessionmgr, init_ModuleSessionMgr),
        reader("module.cli.",        getRunDb_CommonGCfg_logging_module_cli,        init_ModuleCli),
        reader("module.netserve.",   getRunDb_CommonGCfg_logging_module_netserve,   init_ModuleNetserve),
        reader("module.acs_custom.", getRunDb_CommonGCfg_logging_module_acs_custom, init_ModuleAcsCustom),
        reader("module.switch.",     getRunDb_CommonGCfg_logging_module_switch,     init_ModuleSwitch),
        reader("module.datapath.",   getRunDb_CommonGCfg_logging_module_datapath,   init_ModuleDatapath),
    };
    // clang-format on
}

inline Reader reader_of(std::string const& prefix) {
    for (auto const& reader : all_readers()) {
        if (reader.prefix == prefix) {
            return reader;
        }
    }
    throw std::invalid_argument(prefix);
}

} // namespace xpon::cfgdb
