// --wait and apply, on a board with real programs. XPON_ROUNDS sets how often a change is waited for under
// disturbances.

#include <functional>
#include <mutex>
#include <thread>

#include <sys/stat.h>

#include "kit/random.hpp"
#include "kit/report.hpp"
#include "log_config/wanted.hpp"
#include "operated_board.hpp"

namespace xpon::logctl {
namespace {

using testing::HasSubstr;

class Waiting : public OperatedBoard {
  protected:
    static constexpr char const* snmp_file = "/etc/zlog_modules_config/SNMP.conf";

    Outcome wait(std::vector<std::string> words, std::string const& option = "--wait") const {
        words.push_back(option);
        auto outcome = logctl.run(words);
        outcome.err = without_times(outcome.err);
        return outcome;
    }

    static void pause(test::Program& program) {
        program.process.kill(SIGSTOP);
        std::this_thread::sleep_for(std::chrono::milliseconds{100});
        program.process.kill(SIGCONT);
    }
};

TEST_F(Waiting, EndsWhenTheOutputIsInForce) {
    start_board();
    start_module();
    for (std::string const level : {"error", "debug", "info"}) {
        EXPECT_EQ(wait({"set", "module.snmp.TRAP=" + level, "syslog.file.level=" + level,
                        "syslog.kernel.level=" + level}),
                  silence);
        auto const number = std::map<std::string, int>{{"error", 1}, {"info", 4}, {"debug", 5}}.at(level);
        EXPECT_EQ(contents(printk).substr(0, 1), std::to_string(number + 2));
        shell(fmt::format("syslog-ng-ctl config | grep -B 1 'destination(d_file)' | grep -qF f_{}", number));
    }
}

TEST_F(Waiting, LooksEvenWithoutAChange) {
    start_board();
    EXPECT_EQ(wait({"set", "module.snmp.TRAP=debug"}), silence);
    test::write_file(snmp_file, "[rules]\n");
    EXPECT_EQ(wait({"set", "module.snmp.TRAP=debug"}, "--wait=0"),
              (Outcome{1, "",
                       "logctl: SNMP.conf: wanted ok, written differs, running unknown: "
                       "/etc/zlog_modules_config/SNMP.conf is not what the settings ask for; run: logctl "
                       "apply SNMP.conf; the module has not answered\n"}));
    EXPECT_EQ(wait({"apply", "SNMP.conf"}), silence);
    EXPECT_EQ(wait({"set", "module.snmp.TRAP=debug"}, "--wait=0"), silence);
}

TEST_F(Waiting, DoesNotWaitForWhatOnlyARestartBrings) {
    start_board();
    EXPECT_EQ(wait({"set", "module.sessionmgr.IPC=debug"}, "--wait=3600"),
              (Outcome{1, "",
                       "logctl: note: a level of the session manager takes effect when the daemon is next "
                       "restarted, not before\n"
                       "logctl: SESSIONMGR.conf: wanted ok, written restart needed, running unknown: the "
                       "daemon writes this file when it starts, not before; run: systemctl restart "
                       "log-config; the module has not answered\n"}));
}

TEST_F(Waiting, NamesWhoIsAway) {
    start_board();
    start_module();
    broker->kill();
    EXPECT_EQ(logctl.run({"set", "module.snmp.TRAP=info"}),
              (Outcome{0, "",
                       "logctl: note: no module is told now: ipc-broker does not run; run: systemctl start "
                       "ipc-broker\n"}));
    EXPECT_EQ(logctl.run({"set", "syslog.file.level=error"}), silence); // no module's business
    EXPECT_EQ(wait({"set", "syslog.file.level=info"}), silence);
    auto const without_broker = wait({"set", "module.snmp.TRAP=error"}, "--wait=0.2");
    EXPECT_EQ(without_broker.status, 1);
    EXPECT_THAT(without_broker.err, testing::StartsWith("logctl: broker down: ipc-broker does not run; run: "
                                                        "systemctl start ipc-broker\n"));
    start_broker();
    EXPECT_EQ(wait({"set", "module.snmp.TRAP=error"}), silence);

    ASSERT_EQ(stop_daemon(), 0);
    EXPECT_EQ(logctl.run({"set", "module.snmp.TRAP=debug"}), not_applied_now);
    EXPECT_EQ(logctl.run({"set", "module.snmp.TRAP=debug"}), silence); // nothing is changed
    EXPECT_EQ(logctl.run({"apply"}), not_applied_now);
    EXPECT_EQ(logctl.run({"set", "module.snmp.TRAP=error", "--dry-run", "--wait"}),
              (Outcome{0, "module.snmp.TRAP: debug -> error\n", ""}));
    EXPECT_EQ(wait({"set", "module.snmp.TRAP=debug"}, "--wait=0.2"),
              (Outcome{1, "",
                       "logctl: daemon down: log-config does not run; run: systemctl start log-config\n"
                       "logctl: SNMP.conf: wanted ok, written differs, running ok: "
                       "/etc/zlog_modules_config/SNMP.conf is not what the settings ask for; run: systemctl "
                       "start log-config\n"}));
}

TEST_F(Waiting, IsNotDeceivedByAModuleThatAnswersAboutAnOlderFile) {
    start_board();
    start_module();
    module->process.kill(SIGSTOP);
    auto const stale = wait({"set", "module.snmp.TRAP=info"}, "--wait=0.5");
    EXPECT_EQ(stale.status, 1);
    EXPECT_THAT(stale.err, HasSubstr("running stale: the module knows the file as of TIME"));

    // What a module says that had read the file just before it was written.
    answer(9, 0);
    tell(ipc::file_known_event, ipc::payload_of(ipc::FileKnown{9, 0, 1'000}));
    EXPECT_EQ(wait({"set", "module.snmp.TRAP=info"}, "--wait=0.5").status, 1);
    module->process.kill(SIGCONT);
    EXPECT_EQ(wait({"set", "module.snmp.TRAP=info"}), silence);
}

TEST_F(Waiting, WhatTheCallerMayNotSeeIsUnknown) {
    start_board();
    if (!become_member()) {
        GTEST_SKIP() << "an ordinary user has no group to give files to";
    }
    EXPECT_EQ(wait({"set", "module.snmp.TRAP=error"}), silence);
    EXPECT_EQ(wait({"set", "syslog.file.level=error"}, "--wait=0.5"),
              (Outcome{1, "",
                       "logctl: syslog-ng: wanted ok, written ok, running unknown: needs root; run: sudo "
                       "logctl status\n"}));
}

TEST_F(Waiting, EveryCommandThatChangesSettingsWaits) {
    start_board();
    EXPECT_EQ(wait({"set", "module.snmp.TRAP=error", "syslog.file.level=error"}).status, 0);
    auto const exported = logctl.run({"export"}).out;
    EXPECT_EQ(wait({"reset", "*"}).status, 0);
    test::write_file(scratch / "settings.json", exported);
    EXPECT_EQ(wait({"import", (scratch / "settings.json").string()}).status, 0);
    EXPECT_EQ(wait({"rollback", "0"}).status, 0);
    EXPECT_EQ(wait({"commit-confirm", "5", "module.snmp.TRAP=info"}).status, 0);
    ASSERT_EQ(logctl.run({"confirm"}).status, 0);
    ASSERT_EQ(stop_daemon(), 0);
    for (std::vector<std::string> const& words :
         {std::vector<std::string>{"set", "module.snmp.TRAP=error", "syslog.file.level=error"},
          {"reset", "*"},
          {"import", (scratch / "settings.json").string()},
          {"rollback", "0"},
          {"commit-confirm", "5", "module.snmp.TRAP=info"},
          {"apply"}}) {
        auto const waited = wait(words, "--wait=0");
        EXPECT_EQ(waited.status, 1) << words.front();
        EXPECT_THAT(waited.err, HasSubstr("daemon down: log-config does not run")) << words.front();
    }
}

// --- under disturbances

/// A module that takes its time between each two steps and remembers what it has read.
class SlowModule {
  public:
    SlowModule(std::uint32_t number, std::filesystem::path file_to_read)
      : module{number}
      , file{std::move(file_to_read)}
      , thread{[this](std::stop_token const& stop) { follow(stop); }} {}

    std::string read() {
        std::scoped_lock const lock{mutex};
        return text;
    }

  private:
    void follow(std::stop_token const& stop) {
        auto const bus = ipc::make_zmq_ipc(ipc::any_address, "SLOW");
        while (!stop.stop_requested()) {
            for (auto message = bus->receive().value(); message; message = bus->receive().value()) {
                if (message->header.event == ipc::connected_event ||
                    ipc::record_in<ipc::FileChange>(message->payload) == ipc::FileChange{module}) {
                    answer(*bus);
                }
            }
            test::wait_readable(bus->receive_fd(), std::chrono::milliseconds{50});
        }
    }

    void answer(ipc::IIpc& bus) {
        struct stat status{};
        stat(file.c_str(), &status);
        auto const changed = static_cast<std::uint64_t>(status.st_mtim.tv_sec) * 1000U +
                             static_cast<std::uint64_t>(status.st_mtim.tv_nsec) / 1'000'000U;
        dawdle();
        auto now = test::read_file(file);
        dawdle();
        {
            std::scoped_lock const lock{mutex};
            text = std::move(now);
        }
        tell(bus, ipc::file_known_event, ipc::payload_of(ipc::FileKnown{module, 0, changed}));
        tell(bus, ipc::file_changed_reply, ipc::payload_of(ipc::FileAnswer{module, 0}));
    }

    static void tell(ipc::IIpc& bus, std::uint16_t event, std::vector<std::byte> const& payload) {
        std::ignore = bus.send({ipc::everybody, event, 0}, payload);
    }

    void dawdle() { std::this_thread::sleep_for(std::chrono::milliseconds{test::below(random, 8)}); }

    std::uint32_t module;
    std::filesystem::path file;
    std::mutex mutex;
    std::string text; // guarded by the mutex
    test::Random random{7};
    std::jthread thread;
};

TEST_F(Waiting, NeverSaysYesWronglyUnderDisturbances) {
    start_board();
    auto random = test::seeded();
    std::array<std::function<void()>, 5> const disturbances{{
        [] {},
        [&] {
            broker->kill();
            start_broker();
        },
        [&] {
            daemon->kill();
            start_daemon();
        },
        [&] { pause(*broker); },
        [&] { pause(*syslog_ng); },
    }};
    auto const& snmp = *log_config::find_output("SNMP.conf");
    test::Wanted const wanted{database};
    std::vector<double> latencies; // in milliseconds
    int no = 0;
    {
        SlowModule module{9, snmp.path};
        for (int round = 0; round < test::rounds(30) && !HasFailure(); ++round) {
            auto const level = [&] { return std::to_string(test::below(random, 6)); };
            auto const disturb = disturbances.at(test::below(random, disturbances.size()));
            Outcome outcome{};
            std::chrono::duration<double, std::milli> took{};
            std::jthread waiting{[&, words = std::vector<std::string>{
                                         "set", "module.snmp.TRAP=" + level(), "syslog.file.level=" + level(),
                                         "syslog.kernel.level=" + level(), "--wait=5"}] {
                auto const begin = std::chrono::steady_clock::now();
                outcome = logctl.run(words);
                took = std::chrono::steady_clock::now() - begin;
            }};
            std::this_thread::sleep_for(std::chrono::milliseconds{test::below(random, 60)});
            disturb();
            waiting.join();
            if (outcome.status != 0) {
                EXPECT_NE(outcome.err, "");
                ++no;
                continue;
            }
            latencies.push_back(took.count());
            EXPECT_EQ(module.read(), wanted(snmp)) << round;
            EXPECT_TRUE(log_config::holds(log_config::kernel_output(), contents(printk),
                                          wanted(log_config::kernel_output())))
                << round;
            EXPECT_EQ(contents(syslog_ng_conf), wanted(log_config::syslog_ng_output())) << round;
            shell(std::string{"syslog-ng-ctl config | cmp - "} + syslog_ng_conf);
        }
    }
    ASSERT_FALSE(latencies.empty());
    std::ranges::sort(latencies);
    test::report(fmt::format(
        "--wait while the daemon and the broker are killed, the broker and syslog-ng frozen, with a "
        "slow module\t{} times yes after {:.0f} ms in the median, {} times no\tno yes was wrong",
        latencies.size(), latencies[latencies.size() / 2], no));
}

// --- apply

TEST_F(Waiting, ApplyHasEverythingWrittenLoadedAndToldAgain) {
    start_board();
    start_module();
    auto const wanted = contents(syslog_ng_conf);
    test::write_file(snmp_file, "by hand\n");
    test::write_file(syslog_ng_conf, "by hand\n");
    test::write_file(printk, "1\t4\t1\t7\n");
    auto const before = logctl.run({"history"}).out;
    EXPECT_EQ(wait({"apply"}), silence);
    EXPECT_EQ(contents(syslog_ng_conf), wanted);
    EXPECT_EQ(contents(printk).substr(0, 1), "4");
    EXPECT_EQ(logctl.run({"history"}).out, before);
    EXPECT_EQ(line("SNMP.conf"), "SNMP.conf              ok      ok       ok");
}

TEST_F(Waiting, ApplyOfSomeLeavesTheOthers) {
    start_board();
    test::write_file(snmp_file, "by hand\n");
    EXPECT_EQ(wait({"apply", "kernel", "CLI"}), silence);
    EXPECT_EQ(contents(snmp_file), "by hand\n");
    EXPECT_EQ(wait({"apply", "kernel", "SNMP"}), silence);
    EXPECT_NE(contents(snmp_file), "by hand\n");
}

TEST_F(Waiting, ApplyNamesWhatOnlyAStartWrites) {
    for (std::string const name : {"AAA-CONFIG.conf", "SESSIONMGR.conf"}) {
        EXPECT_EQ(logctl.run({"apply", "kernel", name}),
                  (Outcome{1, "",
                           "logctl: " + name +
                               ": the daemon writes it when it starts, not before; run: "
                               "systemctl restart log-config\n"}));
    }
    EXPECT_EQ(logctl.run({"apply", "SNNP"}),
              (Outcome{1, "", "logctl: \"SNNP\": no such output; did you mean \"SNMP.conf\"?\n"}));
    EXPECT_FALSE(std::filesystem::exists(database)); // and nothing is made
}

} // namespace
} // namespace xpon::logctl
