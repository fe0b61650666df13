#include "integration/board.hpp"

#include <atomic>
#include <deque>
#include <thread>

#include <sys/mount.h>

#include "integration/terminal.hpp"
#include "kit/fifo.hpp"
#include "kit/raw_database.hpp"
#include "kit/sanitized.hpp"

namespace xpon::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class Terminals : public Board {
  protected:
    void start_everything() {
        Board::start_everything();
        wait_until_serving();
    }

    /// Until the service has installed its callback, at the very end of its start-up, events are dropped.
    /// Probes that were not followed stay open until one is, so that the event that is waited for is that
    /// one's.
    static void wait_until_serving() {
        std::deque<Terminal> probes;
        ASSERT_TRUE(wait_until([&] {
            auto const& probe = probes.emplace_back();
            return wait_until([&] { return has_output(probe.number()); }, std::chrono::seconds{2});
        }));
        auto const followed = probes.back().number();
        for (auto& probe : probes) {
            probe.hang_up();
        }
        ASSERT_TRUE(wait_for_no_output(followed));
    }

    /// The daemon with a syslog-ng that is only said to reload.
    void start_daemon_alone() {
        std::filesystem::remove("/usr/sbin/syslog-ng-ctl");
        write_file("/usr/sbin/syslog-ng-ctl", "#!/bin/sh\nexit 0\n");
        std::filesystem::permissions("/usr/sbin/syslog-ng-ctl", std::filesystem::perms{0755});
        start_daemon();
        wait_until_serving();
    }

    static bool has_output(std::string const& number) {
        auto const text = contents(syslog_ng_conf);
        return text.find("destination d_rsh_" + number + " {") != std::string::npos &&
               text.find("    destination(d_rsh_" + number + ");\n") != std::string::npos;
    }
    static bool wait_for_output(std::string const& number) {
        return wait_until([&] { return has_output(number); });
    }
    static bool wait_for_no_output(std::string const& number) {
        return wait_until([&] { return !has_output(number); });
    }

    /// Logs until the terminal shows a message: then syslog-ng runs the text that names it, and holds it
    /// open.
    static bool wait_until_shown(Terminal& terminal) {
        return wait_until([&] {
            auto const token = unique_token();
            log(LOG_ERR, token);
            return terminal.wait_for(token, std::chrono::milliseconds{200});
        });
    }

    /// Terminal events are handled in order: once this one's are, all earlier ones are.
    static void wait_for_earlier_events() {
        Terminal probe;
        ASSERT_TRUE(wait_for_output(probe.number()));
        probe.hang_up();
        ASSERT_TRUE(wait_for_no_output(probe.number()));
    }

    /// The number of the one terminal that is open: a lower one may still be held by syslog-ng.
    static std::string wait_for_a_terminal() {
        std::string number;
        EXPECT_TRUE(wait_until([&] {
            for (auto const& entry : std::filesystem::directory_iterator("/dev/pts")) {
                if (auto const name = entry.path().filename().string(); name != "ptmx") {
                    number = name;
                }
            }
            return !number.empty();
        }));
        return number;
    }

    /// Lets the login at this terminal end, and waits until its output is gone. A login program closes the
    /// two sides in an order of its own: the node can vanish between the poller's look at it and its question
    /// who holds it, and then the output stays until the terminal's next event. The next reload brings one:
    /// syslog-ng closes what it still held.
    static void leave(ChildProcess& login, Fifo const& go, std::string const& number) {
        Terminal other; // opened later it could get the same number
        ASSERT_TRUE(wait_for_output(other.number()));
        ASSERT_TRUE(go.feed(""));
        EXPECT_TRUE(login.wait());
        ASSERT_TRUE(wait_until([&] { return !std::filesystem::exists("/dev/pts/" + number); }));
        other.hang_up();
        EXPECT_TRUE(wait_for_no_output(other.number()));
        EXPECT_TRUE(wait_for_no_output(number));
    }

    /// Opens and closes terminals, up to 14 at a time.
    static void open_and_close(int count) {
        std::deque<Terminal> open;
        for (int number = 0; number < count; ++number) {
            if (open.size() == 14) {
                open.front().hang_up();
                ASSERT_TRUE(wait_for_no_output(open.front().number()));
                open.pop_front();
            }
            open.emplace_back();
            ASSERT_TRUE(wait_for_output(open.back().number())) << number;
        }
        while (!open.empty()) {
            open.front().hang_up();
            ASSERT_TRUE(wait_for_no_output(open.front().number()));
            open.pop_front();
        }
    }
};

TEST_F(Terminals, AnOpenTerminalGetsTheLogAndAClosedOneLosesItsOutput) {
    start_everything();
    Terminal terminal;
    ASSERT_TRUE(wait_for_output(terminal.number()));
    EXPECT_TRUE(wait_until_shown(terminal));
    terminal.hang_up();
    EXPECT_TRUE(wait_for_no_output(terminal.number()));
    EXPECT_TRUE(wait_until_logged(log_file));
    EXPECT_EQ(read_file(syslog_ng_conf), golden("syslog_ng/defaults.conf"));
}

TEST_F(Terminals, EachOfSeveralGetsTheLog) {
    start_everything();
    std::vector<Terminal> terminals(3);
    for (auto& terminal : terminals) {
        ASSERT_TRUE(wait_for_output(terminal.number()));
    }
    for (auto& terminal : terminals) {
        EXPECT_TRUE(wait_until_shown(terminal));
    }
}

TEST_F(Terminals, OneThatABackgroundJobKeepsStays) {
    start_everything();
    Terminal terminal;
    ASSERT_TRUE(wait_for_output(terminal.number()));
    ASSERT_TRUE(wait_until_shown(terminal));
    ChildProcess const job{{.argv = {"bash", "-c", "exec sleep 600 < " + terminal.path()}}};
    ASSERT_TRUE(wait_until([&] {
        std::error_code ignored;
        return std::filesystem::read_symlink(fmt::format("/proc/{}/fd/0", job.pid()), ignored) ==
                   terminal.path() &&
               contents(fmt::format("/proc/{}/comm", job.pid())) == "sleep\n";
    }));
    terminal.close_slave();
    wait_for_earlier_events();
    EXPECT_TRUE(has_output(terminal.number()));
    EXPECT_TRUE(wait_until_shown(terminal));
}

TEST_F(Terminals, OneThatOnlySyslogNgHoldsGoes) {
    start_everything();
    Terminal terminal;
    ASSERT_TRUE(wait_for_output(terminal.number()));
    ASSERT_TRUE(wait_until_shown(terminal));
    terminal.close_slave();
    EXPECT_TRUE(wait_for_no_output(terminal.number()));
    EXPECT_TRUE(std::filesystem::exists(terminal.path()));
}

TEST_F(Terminals, OneThatOnlySyslogNgHoldsStaysWhileNobodyCanTell) {
    start_everything();
    for (auto const* const tool : {"/usr/bin/fuser", "/usr/bin/pgrep"}) {
        Terminal terminal;
        ASSERT_TRUE(wait_for_output(terminal.number()));
        ASSERT_TRUE(wait_until_shown(terminal));
        ASSERT_EQ(mount("/dev/null", tool, nullptr, MS_BIND, nullptr), 0) << tool;
        terminal.close_slave();
        wait_for_earlier_events();
        EXPECT_TRUE(has_output(terminal.number())) << tool;
        EXPECT_TRUE(wait_until_shown(terminal)) << tool;
        ASSERT_EQ(umount2(tool, MNT_DETACH), 0) << tool; // somebody may just be looking for it
        // syslog-ng lets go of it, and takes it again, whenever it reloads: who looks in between finds
        // nobody.
        EXPECT_TRUE(wait_until([&] {
            wait_for_earlier_events();
            return !has_output(terminal.number());
        })) << tool;
    }
}

TEST_F(Terminals, OneOpenBeforeTheDaemonGetsNoOutputUntilItIsOpenedAgain) {
    Terminal before;
    start_everything();
    wait_for_earlier_events();
    EXPECT_FALSE(has_output(before.number()));
    auto const number = before.number();
    before.hang_up();
    wait_for_earlier_events();
    Terminal again;
    EXPECT_EQ(again.number(), number);
    EXPECT_TRUE(wait_for_output(number));
}

TEST_F(Terminals, AFailedEventEndsTheirFollowingAndNothingElse) {
    start_everything();
    RawDatabase raw{std::string{database} + "/running.db"};
    raw.run("INSERT INTO setting(path, value) VALUES('syslog.rsh.level', 9)"); // no change is announced
    Terminal const failed;
    EXPECT_TRUE(wait_for_text(log_file, "syslog.rsh.level: 9 is stored"));
    raw.run("DELETE FROM setting");
    Terminal const later;
    auto const before = read_file(syslog_ng_conf);
    set({{"syslog.console.level", "debug"}});
    EXPECT_TRUE(wait_until([&] { return read_file(syslog_ng_conf) != before; })) << "no change is followed";
    EXPECT_FALSE(has_output(failed.number()));
    EXPECT_FALSE(has_output(later.number()));
    signal_daemon(SIGHUP);
    ASSERT_TRUE(daemon->wait_ready());
    wait_until_serving();
}

TEST_F(Terminals, ARestartForgetsTheOpenOnes) {
    start_everything();
    Terminal terminal;
    ASSERT_TRUE(wait_for_output(terminal.number()));
    signal_daemon(SIGHUP);
    ASSERT_TRUE(daemon->wait_ready());
    EXPECT_TRUE(wait_for_no_output(terminal.number()));
}

TEST_F(Terminals, OneOfTheScriptProgramIsFollowed) {
    start_everything();
    Fifo const go{scratch / "go"};
    ChildProcess login{
        {.argv = {"script", "--quiet", "--flush", "--command", "cat " + go.path(), scratch / "typescript"}}};
    auto const number = wait_for_a_terminal();
    ASSERT_TRUE(wait_for_output(number));
    EXPECT_TRUE(wait_until_logged(scratch / "typescript"));
    leave(login, go, number);
}

TEST_F(Terminals, ASecureShellLoginIsFollowed) {
    if (read_file("/proc/self/uid_map").find("4294967295") == std::string::npos) {
        GTEST_SKIP() << "sshd needs more than one user id, which an ordinary user's sandbox does not have";
    }
    start_everything();
    auto const key = scratch / "key";
    ASSERT_EQ(ChildProcess({.argv = {"ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", key}}).wait(), 0);
    std::filesystem::create_directories("/run/sshd");
    std::filesystem::permissions(scratch.path(), std::filesystem::perms{0755});
    auto const config = scratch / "sshd_config";
    write_file(config, "ListenAddress 127.0.0.1:2222\nHostKey " + key.string() + "\nAuthorizedKeysFile " +
                           key.string() +
                           ".pub\nStrictModes no\nPermitRootLogin yes\nUsePAM no\nPidFile none\n");
    ChildProcess const sshd{{.argv = {"/usr/sbin/sshd", "-D", "-f", config}}};
    Fifo const go{scratch / "go"};
    auto const shown = scratch / "shown";
    std::optional<ChildProcess> login;
    ASSERT_TRUE(wait_until([&] {
        login.emplace(
            Command{.argv = {"ssh", "-tt", "-q", "-p", "2222", "-i", key, "-o", "StrictHostKeyChecking=no",
                             "-o", "UserKnownHostsFile=/dev/null", "root@127.0.0.1", "cat " + go.path()},
                    .environment = {},
                    .output = shown});
        return !login->wait(std::chrono::milliseconds{500}); // it stays once sshd listens
    }));
    auto const number = wait_for_a_terminal();
    ASSERT_TRUE(wait_for_output(number));
    EXPECT_TRUE(wait_until_logged(shown));
    leave(*login, go, number);
}

TEST_F(Terminals, FifteenGetOutputTheSixteenthIsOnlyRecordedAndTheNextStopsTheProcess) {
    start_daemon_alone();
    std::vector<Terminal> terminals(15);
    for (auto const& terminal : terminals) {
        ASSERT_TRUE(wait_for_output(terminal.number()));
    }
    auto const with_fifteen = read_file(syslog_ng_conf);
    Terminal sixteenth;
    ASSERT_EQ(sixteenth.number(), "15");
    terminals.back().hang_up(); // an event behind it
    ASSERT_TRUE(wait_for_no_output("14"));
    EXPECT_FALSE(has_output("15"));
    Terminal fifteenth_again;
    ASSERT_TRUE(wait_for_output("14"));
    EXPECT_EQ(read_file(syslog_ng_conf), with_fifteen);
    Terminal const one_too_many;
    EXPECT_EQ(daemon->process.wait(), 128 + SIGABRT);
}

TEST_F(Terminals, FiveHundredLeaveNothingBehind) {
    start_daemon_alone();
    open_and_close(100); // whatever is allocated once is there by now
    auto const memory_before = own_kilobytes();
    auto const descriptors_before = descriptors();
    open_and_close(400);
    EXPECT_EQ(read_file(syslog_ng_conf), golden("syslog_ng/defaults.conf"));
    EXPECT_TRUE(wait_until([&] { return descriptors() <= descriptors_before; }));
    EXPECT_TRUE(wait_until([&] { return children().empty(); }));
    if (!sanitized) {
        EXPECT_LT(own_kilobytes(), memory_before + 300) << "kilobytes";
    }
    EXPECT_EQ(stop_daemon(), 0);
}

TEST_F(Terminals, FortyWithRealSyslogNgLeaveNothingBehind) {
    start_everything();
    auto const descriptors_before = descriptors();
    open_and_close(40);
    EXPECT_EQ(read_file(syslog_ng_conf), golden("syslog_ng/defaults.conf"));
    EXPECT_TRUE(wait_until([&] { return descriptors() <= descriptors_before; }));
    EXPECT_TRUE(wait_until([&] { return children().empty(); }));
    EXPECT_TRUE(wait_until_logged(log_file));
}

TEST_F(Terminals, ThePollersDescriptorsAreInheritedByNobody) {
    auto const listing = scratch / "descriptors";
    std::filesystem::remove("/usr/sbin/syslog-ng-ctl");
    write_file("/usr/sbin/syslog-ng-ctl", "#!/bin/sh\nls -l /proc/self/fd > " + listing.string() +
                                              ".new; mv " + listing.string() + ".new " + listing.string() +
                                              "\n");
    std::filesystem::permissions("/usr/sbin/syslog-ng-ctl", std::filesystem::perms{0755});
    start_daemon();
    wait_until_serving();
    std::filesystem::remove(listing);
    Terminal const terminal; // now run by the polling thread
    ASSERT_TRUE(wait_until([&] { return std::filesystem::exists(listing); }));
    EXPECT_THAT(read_file(listing), AllOf(Not(HasSubstr("inotify")), Not(HasSubstr("eventfd")),
                                          Not(HasSubstr("running.db")), Not(HasSubstr("socket"))));
}

TEST_F(Terminals, ChangesAndTerminalEventsTogetherKeepTheFileWhole) {
    start_daemon_alone();
    std::atomic<bool> done = false;
    int torn = 0;
    int read = 0;
    std::thread reader{[&] {
        while (!done) {
            auto const text = contents(syslog_ng_conf);
            ++read;
            if (!text.starts_with("#####") || !text.ends_with("    destination(d_dhcpd);\n};\n")) {
                ++torn;
            }
        }
    }};
    std::thread writer{[&] {
        char const* const levels[] = {"debug", "info", "notice"};
        for (std::size_t round = 0; !done; ++round) {
            set({{"syslog.rsh.level", levels[round % 3]}, {"syslog.kernel.level", levels[round % 3]}});
        }
    }};
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds{10};
    while (std::chrono::steady_clock::now() < end) {
        open_and_close(3);
    }
    done = true;
    reader.join();
    writer.join();
    EXPECT_EQ(torn, 0) << "of " << read;
    EXPECT_GT(read, 100);
    set({{"syslog.rsh.level", "notice"}, {"syslog.kernel.level", "critical"}});
    EXPECT_TRUE(wait_until([] { return contents(syslog_ng_conf) == golden("syslog_ng/defaults.conf"); }));
    EXPECT_TRUE(wait_until([] { return contents(printk) == "2\n"; }));
    EXPECT_EQ(stop_daemon(), 0);
}

TEST_F(Terminals, OneThatNobodyReadsStallsEveryOutputUntilItLeaves) {
    start_everything();
    Terminal paused;
    ASSERT_TRUE(wait_for_output(paused.number()));
    ASSERT_TRUE(wait_until_shown(paused));
    for (int count = 0; count < 200; ++count) { // some 4 KiB fill it
        log(LOG_ERR, unique_token() + std::string(200, 'x'));
    }
    auto const stuck = unique_token();
    log(LOG_ERR, stuck);
    EXPECT_FALSE(wait_until([&] { return contents(log_file).find(stuck) != std::string::npos; },
                            std::chrono::seconds{2}));
    paused.hang_up();
    ASSERT_TRUE(wait_for_no_output(paused.number()));
    EXPECT_TRUE(wait_for_text(log_file, stuck)) << "nothing was lost meanwhile";
}

} // namespace
} // namespace xpon::test
