// status, on a board with real programs.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "integration/board.hpp"
#include "integration/terminal.hpp"
#include "kit/ipc_ready.hpp"
#include "kit/report.hpp"
#include "logctl.hpp"
#include "xpon/ipc/file_events.hpp"
#include "xpon/ipc/zmq_ipc.hpp"
#include "xpon/log_config/zlog_files/config_files.hpp"

namespace xpon::logctl {
namespace {

using testing::HasSubstr;

class Status : public test::Board {
  protected:
    void start_board() {
        start_journald();
        start_syslog_ng();
        start_broker();
        start_daemon();
        // READY=1 comes before the first pass; once that has ended, terminals are followed and changes
        // delivered.
        set({{"module.snmp.TRAP", "debug"}});
        ASSERT_TRUE(test::wait_until([&] { return logctl.run({"status"}).status == 0; })) << status();
    }

    /// What it prints, without what differs from run to run.
    std::string status() const {
        static std::regex const process{R"(process \d+)"};
        return std::regex_replace(without_times(logctl.run({"status"}).out), process, "process PID");
    }

    /// The line about one output.
    std::string line(std::string const& output) const {
        auto const all = status();
        auto const begin = all.find("\n" + output + " ", all.find("\nOUTPUT ")) + 1;
        return all.substr(begin, all.find('\n', begin) - begin);
    }

    bool wait_for_line(std::string const& output, std::string const& expected) const {
        return test::wait_until([&] { return line(output) == expected; });
    }

    void answer(std::uint32_t module, std::uint32_t status_of_module) {
        if (!bus) {
            bus = ipc::make_zmq_ipc(ipc::any_address, "TEST");
            ASSERT_TRUE(test::wait_connected(*bus));
        }
        EXPECT_THAT(bus->send({ipc::everybody, ipc::file_changed_reply, 0},
                              ipc::payload_of(ipc::FileAnswer{module, status_of_module})),
                    test::IsOk());
    }

    Logctl logctl;
    std::shared_ptr<ipc::IIpc> bus;
};

/// The lines of all zlog files, each in the same state.
std::string zlog_lines(std::string const& state) {
    std::string lines;
    for (auto const& file : log_config::zlog_files) {
        lines += fmt::format("{:21}  {}\n", file.name, state);
    }
    return lines;
}

TEST_F(Status, OfABoardThatRunsIsInStep) {
    start_board();
    EXPECT_EQ(status(), text(R"(
daemon     up since TIME, process PID
broker     up since TIME, process PID
syslog-ng  up since TIME, process PID
database   readable
terminals  0 open, 0 receiving, 0 stalled

OUTPUT                 WANTED  WRITTEN  RUNNING  REASON
syslog-ng              ok      ok       ok
kernel                 ok      ok       ok
)") + zlog_lines("ok      ok       unknown") +
                            "\nin step: all 28 outputs\n");
    EXPECT_EQ(logctl.run({"status"}).status, 0);

    ASSERT_EQ(stop_daemon(), 0);
    auto const without = status();
    EXPECT_THAT(without, testing::StartsWith("daemon     down\nbroker     up since "));
    EXPECT_THAT(without, testing::EndsWith("\nnot in step: 0 of 28 outputs; the daemon is down\n"));
    EXPECT_EQ(logctl.run({"status"}).status, 1);
}

TEST_F(Status, WorksWhereNothingRunsAndNothingIsThere) {
    EXPECT_EQ(logctl.run({"status"}).status, 1);
    EXPECT_EQ(status(), text(R"(
daemon     down
broker     down
syslog-ng  down
database   /var/lib/xpon/cfgdb/running.db: cannot be opened (No such file or directory)
terminals  0 open, 0 receiving, 0 stalled

OUTPUT                 WANTED   WRITTEN  RUNNING  REASON
syslog-ng              invalid  missing  down     syslog-ng does not run or does not answer
kernel                 invalid  unknown  unknown
)") + zlog_lines("invalid  missing  unknown") +
                            "\nnot in step: 28 of 28 outputs; the daemon is down\n");
}

TEST_F(Status, SaysWhyTheDaemonCannotWriteAFolderThatWasMadeAgain) {
    set({{"syslog.rsh.level", "debug"}});
    // As the daemon's unit has it then: what it may write is the folder that was removed.
    auto const daemon = logctl.scratch / "log-config"; // a process of this name
    std::filesystem::copy_file("/bin/sleep", daemon);
    test::ChildProcess const process{
        {.argv = {"unshare", "--mount", "bash", "-c",
                  "mount --bind /etc/zlog_modules_config{,} && mount -o remount,bind,ro "
                  "/etc/zlog_modules_config && exec \"$0\" 1000",
                  daemon}}};
    EXPECT_TRUE(wait_for_line("SNMP.conf",
                              "SNMP.conf              ok      missing  unknown  the daemon cannot write "
                              "/etc/zlog_modules_config, which was made again since it started; let it see "
                              "that: systemctl restart log-config"))
        << status();
    EXPECT_THAT(line("syslog-ng"), testing::Not(HasSubstr("cannot write")));
    if (!HasFailure()) {
        test::report(
            "/etc/zlog_modules_config removed and made again under the unit\tit is read-only for the "
            "daemon\tlogctl status says so, and what to do");
    }
}

TEST_F(Status, IsOneObjectOnRequest) {
    set({{"syslog.rsh.level", "debug"}});
    auto outcome = logctl.run({"status", "--json"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.out, testing::StartsWith(text(R"(
{
  "in_step": false,
  "daemon": {
    "up": false,
    "pid": null,
    "since": null
  },
  "broker": {
    "up": false,
    "pid": null,
    "since": null
  },
  "syslog_ng": {
    "up": false,
    "pid": null,
    "since": null
  },
  "database_problem": null,
  "terminals": [],
  "outputs": [
    {
      "output": "syslog-ng",
      "path": "/etc/syslog-ng/syslog-ng.conf",
      "wanted": "ok",
      "written": "missing",
      "running": "down",
      "in_step": false,
      "reason": "syslog-ng does not run or does not answer"
    },
    {
      "output": "kernel",
      "path": "/proc/sys/kernel/printk",
      "wanted": "ok",
      "written": "ok",
      "running": "ok",
      "in_step": true,
      "reason": ""
    },
    {
      "output": "DNA.conf",
      "path": "/etc/zlog_modules_config/DNA.conf",
      "wanted": "ok",
      "written": "missing",
      "running": "unknown",
      "in_step": false,
      "reason": ""
    },
)")));
}

TEST_F(Status, OfAModuleIsItsLastAnswer) {
    start_board();
    answer(9, 0);
    answer(13, ENOENT);
    answer(43, 0);
    ASSERT_TRUE(wait_for_line("NETSERVE.conf", "NETSERVE.conf          ok      ok       ok"));
    EXPECT_EQ(line("SNMP.conf"), "SNMP.conf              ok      ok       ok");
    EXPECT_EQ(line("CLI.conf"),
              "CLI.conf               ok      ok       failed   the module answered: No such "
              "file or directory");
    answer(13, 0);
    ASSERT_TRUE(wait_for_line("CLI.conf", "CLI.conf               ok      ok       ok"));
    EXPECT_EQ(logctl.run({"status"}).status, 0);

    set({{"module.netserve.SELF", "debug"}});
    ASSERT_TRUE(wait_for_line("NETSERVE.conf",
                              "NETSERVE.conf          ok      ok       stale    the module last answered at "
                              "TIME, before the file was written"));
    EXPECT_EQ(logctl.run({"status"}).status, 1);
    answer(43, 0);
    ASSERT_TRUE(wait_for_line("NETSERVE.conf", "NETSERVE.conf          ok      ok       ok"));
}

TEST_F(Status, SaysWhereADaemonMustBeRestartedForTheSessionManager) {
    start_board();
    set({{"module.sessionmgr.IPC", "debug"}});
    EXPECT_EQ(line("SESSIONMGR.conf"),
              "SESSIONMGR.conf        ok      restart needed  unknown  its levels take effect when the "
              "daemon is next restarted");
    EXPECT_EQ(logctl.run({"status"}).status, 1);
    test::write_file("/etc/zlog_modules_config/SESSIONMGR.conf", "something else\n");
    EXPECT_EQ(line("SESSIONMGR.conf"),
              "SESSIONMGR.conf        ok      restart needed  unknown  its levels take effect when the "
              "daemon is next restarted");
    ASSERT_EQ(stop_daemon(), 0);
    start_daemon();
    ASSERT_TRUE(wait_for_line("SESSIONMGR.conf", "SESSIONMGR.conf        ok      ok       unknown"));
}

TEST_F(Status, NamesWhatIsNotAsWanted) {
    start_board();
    std::filesystem::remove("/etc/zlog_modules_config/SNMP.conf");
    test::write_file("/etc/zlog_modules_config/CLI.conf", "[rules]\n");
    test::write_file(printk, "7\t4\t1\t7\n");
    auto const generated = contents(syslog_ng_conf);
    test::write_file(syslog_ng_conf, generated + "# by hand\n");
    EXPECT_EQ(line("SNMP.conf"), "SNMP.conf              ok      missing  unknown");
    EXPECT_EQ(line("CLI.conf"), "CLI.conf               ok      differs  unknown");
    EXPECT_EQ(line("kernel"),
              "kernel                 ok      differs  differs  console level 4 is wanted, 7 is set");
    EXPECT_EQ(line("syslog-ng"), "syslog-ng              ok      differs  differs  another configuration is "
                                 "loaded than the file holds");
    EXPECT_THAT(status(), testing::EndsWith("\nnot in step: 4 of 28 outputs\n"));
    test::write_file(syslog_ng_conf, generated);
    EXPECT_EQ(line("syslog-ng"), "syslog-ng              ok      ok       ok");
    set({{"syslog.rsh.level", "debug"}});
    ASSERT_TRUE(wait_for_line("syslog-ng", "syslog-ng              ok      ok       ok"));
    logctl.sql("UPDATE setting SET value = 9 WHERE path = 'syslog.rsh.level'",
               std::filesystem::path{database} / "running.db");
    EXPECT_EQ(line("syslog-ng"),
              "syslog-ng              invalid  unknown  ok       syslog.rsh.level: 9 is "
              "stored, allowed is critical, error, warning, notice, info or debug (0 to 5)");
}

TEST_F(Status, OfTheTerminalsIsSeenWithoutOpeningThem) {
    test::Terminal early;
    start_board();
    test::Terminal late;
    auto const expect_lines = [&](std::string const& expected) {
        return test::wait_until([&] { return status().find(expected) != std::string::npos; });
    };
    EXPECT_TRUE(expect_lines("terminals  2 open, 1 receiving, 0 stalled\n"));
    auto const token = unique_token();
    log(LOG_ERR, token);
    ASSERT_TRUE(late.wait_for(token));
    auto const table = [&](std::string const& state) {
        return fmt::format("TERMINAL    STATE      MESSAGES\n{:10}  open       0\n{:10}  {}", early.path(),
                           late.path(), state);
    };
    EXPECT_TRUE(expect_lines(table("receiving  1\n"))) << status();
    auto const in_step = status();
    EXPECT_EQ(status(), in_step); // looking changes nothing

    Outcome stalled{};
    EXPECT_TRUE(test::wait_until([&] { // nobody reads the terminal, which some 4 KiB fill
        for (int count = 0; count < 10; ++count) {
            log(LOG_ERR, unique_token() + std::string(500, 'x'));
        }
        stalled = logctl.run({"status"});
        return stalled.status == 1;
    }));
    EXPECT_THAT(stalled.out, HasSubstr("terminals  2 open, 0 receiving, 1 stalled\n"));
    EXPECT_THAT(stalled.out, testing::ContainsRegex(late.path() + "  stalled +[0-9]+\n"));
    EXPECT_THAT(stalled.out, testing::EndsWith("\nnot in step: 0 of 28 outputs; a terminal is stalled\n"));
}

TEST_F(Status, ATerminalThatSyslogNgIsNotToldOfIsStalledAlthoughThereIsRoom) {
    start_board();
    test::Terminal terminal;
    auto const wait_for = [&](std::string const& terminals) {
        return test::wait_until([&] { return status().find(terminals) != std::string::npos; });
    };
    ASSERT_TRUE(wait_for("terminals  1 open, 1 receiving, 0 stalled\n"));
    for (int count = 0; count < 200; ++count) { // more than fits, and than syslog-ng takes in advance
        log(LOG_ERR, unique_token() + std::string(500, 'x'));
    }
    ASSERT_TRUE(test::wait_until([&] { // and syslog-ng takes no more in advance
        auto const seen = status();
        return seen.find(" 1 stalled\n") != std::string::npos && seen == status();
    }));
    terminal.drop_output();
    EXPECT_TRUE(wait_for("terminals  1 open, 0 receiving, 1 stalled\n"));
    terminal.hang_up();
    // It is gone at once; the outputs are in step when the daemon has taken its output away.
    EXPECT_TRUE(test::wait_until([&] { return logctl.run({"status"}).status == 0; }));
    EXPECT_THAT(status(), HasSubstr("terminals  0 open, 0 receiving, 0 stalled\n"));
}

TEST_F(Status, DoesNotWaitForAStoppedSyslogNg) {
    start_board();
    syslog_ng->process.kill(SIGSTOP);
    EXPECT_EQ(line("syslog-ng"), "syslog-ng              ok      ok       down     syslog-ng-ctl: does not "
                                 "answer within 3 s");
    syslog_ng->process.kill(SIGCONT);
    EXPECT_TRUE(wait_for_line("syslog-ng", "syslog-ng              ok      ok       ok"));
}

} // namespace
} // namespace xpon::logctl
