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
    inline static auto const& session_manager = *log_config::find_output("SESSIONMGR.conf");
    inline static auto const& snmp = *log_config::find_output("SNMP.conf");

    /// Waits until the file holds the text. A change that had to wait for the end of a fault is tried again
    /// after 1, 2, 4 ... s, so at the latest after as long as the fault lasted.
    static bool holds(std::filesystem::path const& path, std::string const& text) {
        return wait_until([&] { return contents(path) == text; }, std::chrono::seconds{60});
    }

    /// Waits until every output is what the database says.
    static void expect_in_step() {
        Wanted const wanted{database};
        for (auto const& output : log_config::outputs()) {
            if (!output.at_start_only) {
                EXPECT_TRUE(holds(output.path, wanted(output))) << output.name;
            }
        }
    }

    /// Waits until changes are delivered: at READY=1 the zlog files are written, but syslog-ng is not
    /// configured yet, and a syslog-ng that is not there then ends the daemon.
    static void wait_until_serving() {
        Wanted const wanted{database};
        bool const debug = wanted(snmp).find("SNMP_TRAP.=DEBUG ") != std::string::npos;
        set({{"module.snmp.TRAP", debug ? "info" : "debug"}});
        EXPECT_TRUE(holds(snmp.path, wanted(snmp)));
    }

    void start_serving() {
        start_everything();
        wait_until_serving();
    }

    /// Ends the daemon, which must not have started over.
    void expect_one_life() {
        EXPECT_EQ(notified().size(), 2) << "the daemon was restarted";
        EXPECT_EQ(stop_daemon(), 0);
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

    /// From now on does to these system calls of a process and its children what is said, see strace(1).
    std::unique_ptr<Program> tamper_with(pid_t process, std::string const& calls, std::string const& how) {
        auto const output = scratch / fmt::format("strace.{}.out", started + 1);
        auto tracer = start({"strace", "--follow-forks", "--trace=" + calls, "--inject=" + calls + ":" + how,
                             "--output=/dev/null", "--attach=" + std::to_string(process)});
        EXPECT_TRUE(wait_for_text(output, " attached")) << contents(output);
        return tracer;
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
