// status, on a board with real programs. XPON_SOAK_SECONDS sets for how long a healthy board is looked at.

#include <deque>

#include <fcntl.h>
#include <sys/mount.h>
#include <termios.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "integration/terminal.hpp"
#include "json_page.hpp"
#include "kit/random.hpp"
#include "kit/report.hpp"
#include "operated_board.hpp"
#include "xpon/log_config/zlog_files/config_files.hpp"

namespace xpon::logctl {
namespace {

using testing::HasSubstr;

using Status = OperatedBoard;

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
    static std::regex const messages{R"(( ok +)\d+ *)"};
    EXPECT_EQ(std::regex_replace(status(), messages, "$1N         "), text(R"(
daemon     up since TIME, process PID
broker     up since TIME, process PID
syslog-ng  up since TIME, process PID
database   readable
terminals  0 open, 0 receiving, 0 stalled
trials     none

OUTPUT                 WANTED  WRITTEN  RUNNING  REASON
syslog-ng              ok      ok       ok
kernel                 ok      ok       ok
)") + zlog_lines("ok      ok       unknown  the module has not answered") +
                                                                          text(R"(

DESTINATION  TO                     ARRIVING  MESSAGES  WRITTEN  QUEUED  DROPPED  REASON
file         /var/log/system.log.1  ok        N         -        -       -
console      /dev/console           ok        N         -        -       -

in step: all 28 outputs
)"));
    EXPECT_EQ(logctl.run({"status"}).status, 0);

    ASSERT_EQ(stop_daemon(), 0);
    auto const without = status();
    EXPECT_THAT(without, testing::StartsWith("daemon     down: log-config does not run; run: systemctl start "
                                             "log-config\nbroker     up since "));
    EXPECT_THAT(without, testing::EndsWith("\nnot in step: 0 of 28 outputs; daemon down\n"));
    EXPECT_EQ(logctl.run({"status"}).status, 1);
}

TEST_F(Status, WorksWhereNothingRunsAndNothingIsThere) {
    EXPECT_EQ(logctl.run({"status"}).status, 1);
    EXPECT_THAT(status(), testing::StartsWith(text(R"(
daemon     down: log-config does not run; run: systemctl start log-config
broker     down: ipc-broker does not run; run: systemctl start ipc-broker
syslog-ng  down: syslog-ng does not run; run: systemctl start syslog-ng
database   /var/lib/xpon/cfgdb/running.db: cannot be opened (No such file or directory); run: systemctl start log-config
terminals  0 open, 0 receiving, 0 stalled
trials     none

OUTPUT                 WANTED   WRITTEN  RUNNING  REASON
syslog-ng              unknown  missing  down     /etc/syslog-ng/syslog-ng.conf is missing; run: systemctl start log-config; syslog-ng does not run; run: systemctl start syslog-ng
kernel                 unknown  unknown  unknown
DNA.conf               unknown  missing  unknown  /etc/zlog_modules_config/DNA.conf is missing; run: systemctl start log-config
)")));
    EXPECT_THAT(status(), testing::EndsWith("\n\nnot in step: 28 of 28 outputs; daemon down; broker down; "
                                            "syslog-ng down\n"));
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
                              "/etc/zlog_modules_config, which was made again since it started; run: "
                              "systemctl restart log-config"))
        << status();
    EXPECT_THAT(line("syslog-ng"), testing::Not(HasSubstr("cannot write")));
    test::report("/etc/zlog_modules_config removed and made again under the unit\tit is read-only for the "
                 "daemon\tlogctl status says so, and what to do");
}

TEST_F(Status, IsOneObjectOnRequest) {
    set({{"syslog.rsh.level", "debug"}});
    auto outcome = logctl.run({"status", "--json"});
    EXPECT_EQ(outcome.status, 1);
    expect_explained("status", outcome.out);
    EXPECT_THAT(outcome.out, testing::StartsWith(text(R"(
{
  "in_step": false,
  "daemon": {
    "up": false,
    "state": "down",
    "pid": null,
    "since": null,
    "reason": "log-config does not run",
    "remedy": "systemctl start log-config"
  },
  "broker": {
    "up": false,
    "state": "down",
    "pid": null,
    "since": null,
    "reason": "ipc-broker does not run",
    "remedy": "systemctl start ipc-broker"
  },
  "syslog_ng": {
    "up": false,
    "state": "down",
    "pid": null,
    "since": null,
    "reason": "syslog-ng does not run",
    "remedy": "systemctl start syslog-ng"
  },
  "database_problem": null,
  "trials": [],
  "terminals": [],
  "outputs": [
    {
      "output": "syslog-ng",
      "path": "/etc/syslog-ng/syslog-ng.conf",
      "wanted": "ok",
      "written": "missing",
      "running": "down",
      "in_step": false,
      "reason": "/etc/syslog-ng/syslog-ng.conf is missing; syslog-ng does not run",
      "remedy": "systemctl start log-config; systemctl start syslog-ng"
    },
    {
      "output": "kernel",
      "path": "/proc/sys/kernel/printk",
      "wanted": "ok",
      "written": "ok",
      "running": "ok",
      "in_step": true,
      "reason": "",
      "remedy": ""
    },
    {
      "output": "DNA.conf",
      "path": "/etc/zlog_modules_config/DNA.conf",
      "wanted": "ok",
      "written": "missing",
      "running": "unknown",
      "in_step": false,
      "reason": "/etc/zlog_modules_config/DNA.conf is missing",
      "remedy": "systemctl start log-config"
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
              "file or directory; run: logctl apply CLI.conf");
    answer(13, 0);
    ASSERT_TRUE(wait_for_line("CLI.conf", "CLI.conf               ok      ok       ok"));
    EXPECT_EQ(logctl.run({"status"}).status, 0);

    set({{"module.netserve.SELF", "debug"}});
    ASSERT_TRUE(wait_for_line(
        "NETSERVE.conf", "NETSERVE.conf          ok      ok       stale    the module knows the file as of "
                         "TIME, before it was last written; run: logctl apply NETSERVE.conf"));
    EXPECT_EQ(logctl.run({"status"}).status, 1);
    answer(43, 0);
    ASSERT_TRUE(wait_for_line("NETSERVE.conf", "NETSERVE.conf          ok      ok       ok"));
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
    EXPECT_THAT(line("terminal " + late.number()), testing::ContainsRegex(late.path() + " +ok +1 +- +- +-$"));
    EXPECT_EQ(line("terminal " + early.number()), "");
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
    for (auto const& name : {"file", "console", "terminal"}) {
        EXPECT_THAT(line_in(stalled.out, name),
                    testing::ContainsRegex(" not arriving .* nobody reads " + late.path() +
                                           ", so no destination gets messages; run: fuser -v " +
                                           late.path()));
    }
    EXPECT_THAT(stalled.out, testing::EndsWith("\nnot in step: 0 of 28 outputs; 3 of 3 destinations not "
                                               "arriving; a terminal is stalled\n"));
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

// --- each state that is not "ok", made for real, and its remedy, done as printed

struct Trouble;

class Troubles : public Status, public testing::WithParamInterface<Trouble> {
  public:
    void stop_the_daemon() { ASSERT_EQ(stop_daemon(), 0); }
    void kill_the_broker() { end(*broker, SIGKILL); }
    void kill_syslog_ng() { end(*syslog_ng, SIGKILL); }
    void freeze_the_daemon() { freeze(*daemon); }
    void freeze_the_broker() { freeze(*broker); }
    void freeze_syslog_ng() { freeze(*syslog_ng); }
    void remove_the_database() {
        for (auto const* name : {"running.db", "running.db-wal", "running.db-shm"}) {
            std::filesystem::remove(std::filesystem::path{database} / name);
        }
    }
    void store_a_level_that_is_not_allowed() {
        set({{"syslog.rsh.level", "debug"}});
        logctl.sql("UPDATE setting SET value = 9 WHERE path = 'syslog.rsh.level'",
                   std::filesystem::path{database} / "running.db");
    }
    void open_the_log_folder_to_all() {
        std::filesystem::create_directories("/run/own/log");
        set({{"syslog.file.path", "/run/own/log/"}});
        std::filesystem::permissions("/run/own/log", std::filesystem::perms::all);
    }
    void remove_a_file() { std::filesystem::remove("/etc/zlog_modules_config/SNMP.conf"); }
    void edit_a_file() { test::write_file("/etc/zlog_modules_config/SNMP.conf", "[rules]\n"); }
    void change_the_session_manager() { set({{"module.sessionmgr.IPC", "debug"}}); }
    void change_the_console_level() { test::write_file(printk, "7\t4\t1\t7\n"); }
    void edit_and_load_another_configuration() {
        auto const generated = contents(syslog_ng_conf);
        test::write_file(syslog_ng_conf, generated + "# by hand\n");
        shell("syslog-ng-ctl reload");
        test::write_file(syslog_ng_conf, generated);
    }
    void replace_a_file_unseen() {
        start_module();
        shell("cd /etc/zlog_modules_config && cp SNMP.conf new && mv new SNMP.conf");
    }
    void let_a_module_fail() {
        start_module();
        tell(ipc::file_known_event, ipc::payload_of(ipc::FileKnown{9, ENOENT, ~0ULL})); // as the module would
    }
    void make_the_log_folder_read_only() {
        std::filesystem::create_directories("/run/own/log");
        set({{"syslog.file.path", "/run/own/log/"}});
        ASSERT_TRUE(wait_until_logged("/run/own/log/system.log.1"));
        ASSERT_EQ(mount("disk", "/run/own/log", "tmpfs", MS_RDONLY, nullptr), 0);
        shell("syslog-ng-ctl reload"); // so that it opens the file that is not there
    }
    void put_a_folder_in_its_place() {
        std::filesystem::remove(log_file);
        std::filesystem::create_directory(log_file);
    }
    void send_to_nobody() {
        test::UdpReceiver gone; // its port is free again at the end
        set({{"syslog.remote.2.address", "127.0.0.1"},
             {"syslog.remote.2.port", std::to_string(gone.port())}});
    }
    void send_to_a_group() { // as an old release could
        set({{"syslog.remote.2.address", "192.0.2.7"}});
        logctl.sql("UPDATE setting SET value = '239.1.2.3' WHERE path = 'syslog.remote.2.address'",
                   std::filesystem::path{database} / "running.db");
        set({{"syslog.remote.2.port", "5140"}});
    }
    void stop_reading_a_terminal() {
        terminal = std::make_unique<test::ChildProcess>(
            test::Command{.argv = {"script", "--quiet", "--command", "exec sleep 1000", "/dev/null"}});
        ASSERT_TRUE(test::wait_until([&] { return status().find(" 1 receiving") != std::string::npos; }));
        core::UniqueFd const side_door{open("/dev/pts/0", O_RDWR | O_NOCTTY | O_CLOEXEC)};
        ASSERT_EQ(tcflow(side_door.get(), TCOOFF), 0); // as Ctrl-S does
    }

  protected:
    static void end(test::Program& program, int signal) {
        program.process.kill(signal);
        program.process.wait();
    }
    static void freeze(test::Program& program) { program.process.kill(SIGSTOP); }

    /// Does as it is told; there is no systemd here.
    void follow(std::string const& remedy) {
        bool const restart = remedy.starts_with("systemctl restart ");
        if (remedy == "systemctl start log-config" || remedy == "systemctl restart log-config") {
            if (restart) {
                ASSERT_EQ(stop_daemon(), 0);
            }
            start_daemon();
        } else if (remedy == "systemctl start ipc-broker" || remedy == "systemctl restart ipc-broker") {
            if (restart) {
                end(*broker, SIGTERM);
            }
            start_broker();
        } else if (remedy == "systemctl start syslog-ng") {
            start_syslog_ng();
        } else if (remedy.starts_with("logctl ")) {
            shell(LOGCTL_PROGRAM + remedy.substr(remedy.find(' ')));
        } else {
            shell(remedy);
        }
    }

    std::unique_ptr<test::ChildProcess> terminal;
};

struct Trouble {
    char const* name; ///< of the test
    void (Troubles::*make)();
    char const* line;   ///< about what
    char const* expect; ///< in that line
};

void PrintTo(Trouble const& trouble, std::ostream* stream) {
    *stream << trouble.expect;
}

TEST_P(Troubles, AreNamedAndMendedByTheirRemedy) {
    auto const& trouble = GetParam();
    start_board();
    (this->*trouble.make)();
    std::string line;
    EXPECT_TRUE(test::wait_until([&] {
        log(LOG_ERR, unique_token() + std::string(500, 'x')); // fills terminals and queues
        line = line_in("\nOUTPUT \n" + status_as_printed(), trouble.line);
        return line.find(trouble.expect) != std::string::npos;
    })) << line
        << '\n'
        << status();
    auto const seen = logctl.run({"status"});
    EXPECT_EQ(seen.status, 1);
    auto const remedy = line.substr(line.find("; run: ") + 7);
    follow(remedy.substr(0, remedy.find("; ")));
    EXPECT_TRUE(test::wait_until([&] {
        log(LOG_ERR, unique_token());
        return logctl.run({"status"}).status == 0;
    })) << remedy
        << '\n'
        << status();
    test::report(fmt::format("status: {}\tmade on a board\tnamed with its remedy, which makes status green",
                             trouble.name));
}

// clang-format off
constexpr Trouble troubles[] = {
    {"DaemonDown",       &Troubles::stop_the_daemon,     "daemon",    "down: log-config does not run; run: systemctl start log-config"},
    {"BrokerDown",       &Troubles::kill_the_broker,     "broker",    "down: ipc-broker does not run; run: systemctl start ipc-broker"},
    {"SyslogNgDown",     &Troubles::kill_syslog_ng,      "syslog-ng", "down: syslog-ng does not run; run: systemctl start syslog-ng"},
    {"DaemonFrozen",     &Troubles::freeze_the_daemon,   "daemon",    "frozen: log-config is stopped; run: kill -CONT "},
    {"BrokerFrozen",     &Troubles::freeze_the_broker,   "broker",    "frozen: ipc-broker is stopped; run: kill -CONT "},
    {"SyslogNgFrozen",   &Troubles::freeze_syslog_ng,    "syslog-ng", "frozen: syslog-ng is stopped; run: kill -CONT "},
    {"DatabaseMissing",  &Troubles::remove_the_database, "database",  "cannot be opened (No such file or directory); run: systemctl restart log-config"},

    {"WantedInvalid",    &Troubles::store_a_level_that_is_not_allowed, "syslog-ng  ", "  invalid  unknown  ok       syslog.rsh.level: 9 is stored, but it must be critical, error, warning, notice, info or debug (0 to 5); run: logctl reset syslog.rsh.level"},
    {"WantedUnsafe",     &Troubles::open_the_log_folder_to_all, "syslog-ng  ", "  unsafe  "},
    {"WrittenMissing",   &Troubles::remove_a_file,       "SNMP.conf", "  ok      missing  unknown  /etc/zlog_modules_config/SNMP.conf is missing; run: logctl apply SNMP.conf"},
    {"WrittenDiffers",   &Troubles::edit_a_file,         "SNMP.conf", "  ok      differs  unknown  /etc/zlog_modules_config/SNMP.conf is not what the settings ask for; run: logctl apply SNMP.conf"},
    {"RestartNeeded",    &Troubles::change_the_session_manager, "SESSIONMGR.conf", "  ok      restart needed  unknown  the daemon writes this file when it starts, not before; run: systemctl restart log-config"},
    {"KernelDiffers",    &Troubles::change_the_console_level, "kernel", "  ok      differs  differs  console level 4 is wanted, 7 is set; run: logctl apply kernel"},
    {"RunningDiffers",   &Troubles::edit_and_load_another_configuration, "syslog-ng  ", "  ok      ok       differs  syslog-ng runs another configuration than the file holds; run: logctl apply syslog-ng"},
    {"RunningStale",     &Troubles::replace_a_file_unseen, "SNMP.conf", "  ok      ok       stale    the module knows the file as of TIME, before it was last written; run: logctl apply SNMP.conf"},
    {"RunningFailed",    &Troubles::let_a_module_fail,   "SNMP.conf", "  ok      ok       failed   the module answered: No such file or directory; run: logctl apply SNMP.conf"},

    {"LogFileGone",      &Troubles::make_the_log_folder_read_only, "file", "/run/own/log/system.log.1 is not there, though "},
    {"FolderInItsPlace", &Troubles::put_a_folder_in_its_place, "file", "/var/log/system.log.1 is a folder; run: mv /var/log/system.log.1 /var/log/system.log.1.aside && syslog-ng-ctl reload"},
    {"ReceiverGone",     &Troubles::send_to_nobody,      "remote 2",  " messages wait; run: logctl reset syslog.remote.2.address"},
    {"ReceiverOfAGroup", &Troubles::send_to_a_group,     "remote 2",  "239.1.2.3 is a multicast address; run: logctl reset syslog.remote.2.address"},
    {"TerminalStalled",  &Troubles::stop_reading_a_terminal, "terminal 0", ", held by sleep (process "},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(, Troubles, testing::ValuesIn(troubles),
                         [](auto const& test) { return test.param.name; });

TEST_F(Status, ListsATrialThatIsNotConfirmed) {
    start_board();
    ASSERT_EQ(logctl.run({"commit-confirm", "5", "syslog.rsh.level=debug"}).status, 0);
    EXPECT_THAT(status(), testing::ContainsRegex(
                              "trials     transaction [0-9]+ by [a-z]+, undone in [45] min [0-9]+ s unless "
                              "confirmed; run: logctl confirm [0-9]+\n"));
    ASSERT_EQ(logctl.run({"confirm"}).status, 0);
    EXPECT_THAT(status(), HasSubstr("\ntrials     none\n"));
}

TEST_F(Status, OfAHealthyBoardIsGoodForThoseWhoMayNotSeeAll) {
    start_board();
    EXPECT_EQ(logctl.run({"status"}).status, 0);
    if (!become_member()) {
        GTEST_SKIP() << "an ordinary user has no group to give files to";
    }
    auto const seen = logctl.run({"status"});
    EXPECT_EQ(seen.status, 0) << seen.out << seen.err;
    EXPECT_THAT(line_in(seen.out, "syslog-ng "),
                HasSubstr("  ok      ok       unknown  needs root; run: sudo logctl status"));
    EXPECT_THAT(
        line_in(seen.out, "file"),
        HasSubstr("  unknown   -         -        -       -        needs root; run: sudo logctl status"));
}

TEST_F(Status, OfAReceiverWhoseAddressWasChangedIsThatOfTheNewOne) {
    start_board();
    test::UdpReceiver first;
    auto second = std::make_optional<test::UdpReceiver>();
    auto const go_to = [&](std::uint16_t port) {
        return logctl.run({"set", "--wait", "syslog.remote.1.address=127.0.0.1",
                           fmt::format("syslog.remote.1.port={}", port)});
    };
    auto const send = [&](test::UdpReceiver& to) {
        auto const token = unique_token();
        log(LOG_ERR, token);
        return to.wait_for(token);
    };
    ASSERT_EQ(go_to(first.port()), (Outcome{0, "", ""}));
    EXPECT_TRUE(send(first));
    ASSERT_EQ(go_to(second->port()), (Outcome{0, "", ""}));
    EXPECT_TRUE(send(*second));
    EXPECT_TRUE(test::wait_until([&] {
        return line("remote 1").ends_with(" sent      1         1        0       0");
    })) << line("remote 1");

    second.reset();
    EXPECT_TRUE(test::wait_until([&] {
        log(LOG_ERR, unique_token());
        return line("remote 1").find(" not arriving ") != std::string::npos;
    }));
    ASSERT_EQ(go_to(first.port()), (Outcome{0, "", ""}));
    EXPECT_TRUE(send(first));
    EXPECT_EQ(logctl.run({"status"}).status, 0) << status(); // what waited for the other does not count
}

TEST_F(Status, OfAFileThatCannotBeReadIsNoEndOfIt) {
    start_board();
    std::filesystem::remove("/etc/zlog_modules_config/SNMP.conf");
    std::filesystem::create_symlink("/proc/self/mem", "/etc/zlog_modules_config/SNMP.conf");
    EXPECT_THAT(line("SNMP.conf"),
                HasSubstr("  ok      missing  unknown  /etc/zlog_modules_config/SNMP.conf is "
                          "unreadable; run: logctl apply SNMP.conf"));
}

TEST_F(Status, RaisesNoFalseAlarm) {
    start_board();
    start_module();
    auto random = test::seeded();
    test::UdpReceiver receivers[2];
    std::deque<test::Terminal> open;
    std::size_t changes = 0;
    std::size_t looks = 0;
    auto const seconds = test::number_from_environment("XPON_SOAK_SECONDS", 10);
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds{seconds};
    while (std::chrono::steady_clock::now() < end && !HasFailure()) {
        auto const level = [&] { return std::to_string(test::below(random, 6)); };
        auto const& receiver = receivers[test::below(random, 2)];
        auto const changed = logctl.run({"set", "--wait", "module.snmp.TRAP=" + level(),
                                         "module.dna.*=" + level(), "syslog.file.level=" + level(),
                                         "syslog.remote.level=" + level(), "syslog.kernel.level=" + level(),
                                         "syslog.rsh.level=" + level(), "syslog.remote.1.address=127.0.0.1",
                                         fmt::format("syslog.remote.1.port={}", receiver.port())});
        ASSERT_EQ(changed, silence);
        ++changes;
        if (open.size() < 4 && test::below(random, 2) == 0) {
            open.emplace_back();
        } else if (!open.empty()) {
            open.pop_front();
        }
        for (auto& terminal : open) {
            terminal.wait_for("nothing", std::chrono::milliseconds{0}); // so that it does not fill up
        }
        for (int severity = LOG_ALERT; severity <= LOG_DEBUG; ++severity) {
            log(severity, unique_token());
        }
        // The daemon may be following a terminal, for less than a second. From then on nothing is amiss.
        EXPECT_TRUE(test::wait_until([&] { return logctl.run({"status"}).status == 0; })) << status();
        for (int again = 0; again < 3; ++again) {
            auto const seen = logctl.run({"status"});
            EXPECT_EQ(seen.status, 0) << seen.out;
            ++looks;
        }
    }
    test::report(fmt::format("soak of logctl status on a healthy board with changes, reloads and "
                             "terminals\t{} s, {} changes, looked at {} "
                             "times\tno false alarm",
                             seconds, changes, looks));
}

TEST_F(Status, WatchNeedsATerminal) {
    EXPECT_EQ(logctl.run({"status", "--watch"}),
              refused("--watch needs a terminal; without one: logctl status"));
}

TEST_F(Status, IsPaintedAnewOnATerminalWhenItChanges) {
    start_board();
    auto const screen = logctl.scratch / "screen";
    test::ChildProcess const watch{
        {.argv = {"script", "--quiet", "--flush", "--command", LOGCTL_PROGRAM " status --watch", screen}}};
    EXPECT_TRUE(wait_for_text(screen, "\x1b[H\x1b[?7ldaemon     up since "));
    ASSERT_EQ(stop_daemon(), 0);
    EXPECT_TRUE(wait_for_text(screen, "log-config does not run"));
    EXPECT_EQ(contents(screen).find("\x1b[2J"), std::string::npos) << "the screen is never cleared";
}

} // namespace
} // namespace xpon::logctl
