#pragma once

#include <memory>

#include "integration/board.hpp"
#include "log_config/wanted.hpp"
#include "xpon/cfgdb/module_table.hpp"

namespace xpon::test {

/// A board whose outputs are compared with what its database says.
class FollowedBoard : public Board {
  protected:
    /// Its file follows at a start of the daemon only.
    static constexpr auto const& session_manager = log_config::zlog_files.at(15);
    static_assert(session_manager.name == "SESSIONMGR.conf");
    static constexpr auto const& snmp = log_config::zlog_files.at(17);
    static_assert(snmp.name == "SNMP.conf");

    static std::filesystem::path zlog_path(log_config::ConfigFileEntry const& entry) {
        return zlog_folder + std::string{entry.name};
    }

    /// Waits until the file holds the text. A change that had to wait for the end of a fault is tried again
    /// after 1, 2, 4 ... s, so at the latest after as long as the fault lasted.
    static bool holds(std::filesystem::path const& path, std::string const& text) {
        return wait_until([&] { return contents(path) == text; }, std::chrono::seconds{60});
    }

    /// Waits until every output is what the database says.
    static void expect_in_step() {
        Wanted const wanted{database};
        EXPECT_TRUE(holds(printk, wanted.kernel())) << "kernel";
        EXPECT_TRUE(holds(syslog_ng_conf, wanted.syslog_ng())) << "syslog-ng";
        for (auto const& entry : log_config::zlog_files) {
            if (entry.module != session_manager.module) {
                EXPECT_TRUE(holds(zlog_path(entry), wanted.zlog_file(entry))) << entry.name;
            }
        }
    }

    /// Waits until changes are delivered: at READY=1 the zlog files are written, but syslog-ng is not
    /// configured yet, and a syslog-ng that is not there then ends the daemon.
    static void wait_until_serving() {
        Wanted const wanted{database};
        bool const debug = wanted.zlog_file(snmp).find("SNMP_TRAP.=DEBUG ") != std::string::npos;
        set({{"module.snmp.TRAP", debug ? "info" : "debug"}});
        EXPECT_TRUE(holds(zlog_path(snmp), wanted.zlog_file(snmp)));
    }

    /// One level of each record of a module, so one change of each of 18 fields.
    static std::vector<std::pair<std::string, std::string>>
    a_change_of_every_module(std::string const& level) {
        std::vector<std::pair<std::string, std::string>> settings;
        for (auto const& module : cfgdb::modules()) {
            if (!module.built_in()) {
                settings.emplace_back(fmt::format("module.{}.{}", module.name, module.subjects.front()),
                                      level);
            }
        }
        return settings;
    }

    /// The same, and levels of syslog-ng and the kernel: a change of every output.
    static std::vector<std::pair<std::string, std::string>>
    a_change_of_every_output(std::string const& level) {
        auto settings = a_change_of_every_module(level);
        settings.emplace_back("syslog.file.level", level);
        settings.emplace_back("syslog.kernel.level", level);
        return settings;
    }

    static constexpr char const* reload_program = "/usr/sbin/syslog-ng-ctl";
    static constexpr char const* reload_program_aside = "/usr/sbin/syslog-ng-ctl.aside";

    /// Leaves syslog-ng-ctl at `reload_program_aside` only. An ordinary user cannot rename what is root's
    /// outside.
    static void take_reload_program_away() {
        std::filesystem::copy_file(reload_program, reload_program_aside);
        std::filesystem::remove(reload_program);
    }

    /// Puts a shell script in the place of syslog-ng-ctl, which lies at `reload_program_aside` meanwhile.
    static void replace_reload_program(std::string const& script) {
        take_reload_program_away();
        write_file(reload_program, "#!/bin/sh\n" + script + "\n");
        std::filesystem::permissions(reload_program, std::filesystem::perms{0755});
    }

    static void put_reload_program_back() { std::filesystem::rename(reload_program_aside, reload_program); }
};

} // namespace xpon::test
