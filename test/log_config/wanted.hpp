#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

#include <fmt/format.h>

#include "xpon/cfgdb/cfgdb_wrapper.hpp"
#include "xpon/cfgdb/syslog_settings.hpp"
#include "xpon/log_config/syslog_ng/syslog_ng_text.hpp"
#include "xpon/log_config/zlog/zlog_config_generator.hpp"
#include "xpon/log_config/zlog_files/config_files.hpp"

namespace xpon::test {

/// What the daemon's outputs have to be for a database as it stands, by the same pure functions and none of
/// the daemon's effects. No terminal is open.
class Wanted {
  public:
    explicit Wanted(std::filesystem::path const& folder)
      : cfgdb{std::make_shared<cfgdb::CfgDbWrapper>("TEST", folder)} {}

    std::string zlog_file(log_config::ConfigFileEntry const& entry) const {
        auto const generator = std::make_shared<log_config::ZlogConfigGenerator>();
        log_config::LogModules modules;
        if (auto const added = entry.add_modules(modules, cfgdb, generator); added.has_error()) {
            throw std::runtime_error{std::string{entry.name} + ": " + added.error().to_string()};
        }
        std::string text{generator->get_header()};
        for (auto const& [_, log_module] : modules) {
            text += log_module->get_config();
        }
        return text;
    }

    /// All but the kernel's level.
    SyslogSettings syslog_settings() const {
        SyslogSettings settings{};
        check(getRunDb_CommonGCfg_logging_syslog_file(cfgdb->db(), &settings.file, key));
        check(getRunDb_CommonGCfg_logging_syslog_console(cfgdb->db(), &settings.console, key));
        check(getRunDb_CommonGCfg_logging_syslog_remote(cfgdb->db(), &settings.remote, key));
        check(getRunDb_CommonGCfg_logging_syslog_rsh(cfgdb->db(), &settings.rsh, key));
        return settings;
    }

    std::string syslog_ng() const { return log_config::syslog_ng_text(syslog_settings(), {}); }

    /// What the daemon writes to /proc/sys/kernel/printk.
    std::string kernel() const {
        SyslogKernelDest kernel{};
        check(getRunDb_CommonGCfg_logging_syslog_kernel(cfgdb->db(), &kernel, key));
        return fmt::format("{}\n", kernel.level + 2);
    }

  private:
    static constexpr unsigned short key[3] = {};

    static void check(int status) {
        if (status != 0) {
            throw std::runtime_error{"a syslog record cannot be read"};
        }
    }

    std::shared_ptr<cfgdb::CfgDbWrapper> cfgdb;
};

} // namespace xpon::test
