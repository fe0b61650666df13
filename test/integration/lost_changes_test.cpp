// That no change is lost, whenever it comes and whatever dies meanwhile: rounds of random changes during
// random disturbances, after each of which every output has to be what the database says. XPON_ROUNDS sets
// the number of rounds of each test (and of changes, hundreds of them, where there are no rounds), XPON_SEED
// the random numbers, XPON_IDLE_SECONDS how long an idle daemon is watched.
#include "integration/followed_board.hpp"

#include <algorithm>
#include <array>
#include <fstream>
#include <thread>

#include "integration/rewrites.hpp"
#include "integration/torn_file_reader.hpp"
#include "kit/ipc_ready.hpp"
#include "kit/random.hpp"
#include "kit/raw_database.hpp"
#include "kit/report.hpp"
#include "xpon/ipc/zmq_ipc.hpp"

namespace xpon::test {
namespace {

using testing::AnyOf;

/// Lets an instant pass, so that what follows comes at a random one.
void pass_time(Random& random, std::chrono::microseconds at_most) {
    std::this_thread::sleep_for(
        std::chrono::microseconds{below(random, static_cast<std::size_t>(at_most.count()))});
}

/// Every setting that is a level, by what announces its change: so that each kind of output is met equally
/// often.
std::vector<std::vector<cfgdb::Setting const*>> levels_by_field() {
    std::map<std::uint32_t, std::vector<cfgdb::Setting const*>> fields;
    for (auto const& setting : cfgdb::settings()) {
        bool const of_session_manager = setting.path.starts_with("module.sessionmgr.");
        if (!setting.built_in() && setting.kind == cfgdb::Kind::Level && !of_session_manager) {
            fields[setting.field_id].push_back(&setting);
        }
    }
    std::vector<std::vector<cfgdb::Setting const*>> all;
    for (auto& [_, settings] : fields) {
        all.push_back(std::move(settings));
    }
    return all;
}

class NoChangeIsLost : public FollowedBoard {
  protected:
    void start_everything() {
        Board::start_everything();
        bus = ipc::make_zmq_ipc(ipc::any_address, "TEST");
        ASSERT_TRUE(wait_connected(*bus));
        wanted = std::make_unique<Wanted>(database);
        session_manager_text = contents(session_manager.path);
    }

    /// A commit of one to three levels.
    static void change_something(Random& random) {
        static auto const fields = levels_by_field();
        std::vector<std::pair<std::string, std::string>> settings;
        for (auto count = below(random, 3) + 1; count > 0; --count) {
            auto const& of_one_field = fields.at(below(random, fields.size()));
            settings.emplace_back(of_one_field.at(below(random, of_one_field.size()))->path,
                                  std::to_string(below(random, 6)));
        }
        set(settings);
    }

    /// Threads that commit changes at random instants until they are done.
    class Writers {
      public:
        Writers(NoChangeIsLost& test, std::size_t count, int changes_each) {
            for (std::size_t index = 0; index < count; ++index) {
                threads.emplace_back([random = Random{test.random()}, changes_each]() mutable {
                    for (int change = 0; change < changes_each; ++change) {
                        pass_time(random, std::chrono::milliseconds{8});
                        change_something(random);
                    }
                });
            }
        }
        ~Writers() {
            for (auto& thread : threads) {
                thread.join();
            }
        }
        Writers(Writers const&) = delete;
        Writers& operator=(Writers const&) = delete;

      private:
        std::vector<std::thread> threads;
    };

    void restart_daemon() {
        EXPECT_EQ(stop_daemon(), 0);
        start_daemon();
    }

    void restart_broker() {
        broker->kill();
        start_broker();
    }

    /// Whether one of the commands runs by which a daemon applies what it has written.
    static bool a_command_runs() {
        return std::ranges::any_of(std::filesystem::directory_iterator{"/proc"}, [](auto const& process) {
            std::ifstream file{process.path() / "cmdline"};
            std::string command; // stays empty if it has ended meanwhile
            std::getline(file, command);
            return command.find("syslog-ng-ctl") != std::string::npos ||
                   command.find(printk) != std::string::npos;
        });
    }

    void change_master() {
        EXPECT_THAT(bus->send({ipc::everybody, ipc::master_change_event, 0}, {}), IsOk());
    }

    void hang_up() {
        signal_daemon(SIGHUP);
        EXPECT_TRUE(daemon->wait_ready());
    }

    static void checkpoint() {
        RawDatabase{std::string{database} + "/running.db"}.run("PRAGMA wal_checkpoint(TRUNCATE)");
    }

    /// Runs `disturb` while writers change settings, and waits until everything is in step again.
    void round(std::size_t writers, bool starts, std::function<void()> const& disturb) {
        auto const before = (*wanted)(session_manager);
        {
            Writers const writing{*this, writers, 3};
            if (below(random, 4) == 0) {
                set({{"module.sessionmgr.SELF", std::to_string(below(random, 6))}});
            }
            pass_time(random, std::chrono::milliseconds{10});
            disturb();
        }
        expect_in_step();
        auto const text = contents(session_manager.path);
        if (starts) {
            EXPECT_THAT(text, AnyOf(before, (*wanted)(session_manager)));
            session_manager_text = text;
        } else {
            EXPECT_EQ(text, session_manager_text) << "rewritten without a start";
        }
    }

    void rounds_of_disturbances(int count, std::size_t writers) {
        struct Disturbance {
            char const* name;
            bool starts; ///< the daemon reads everything anew
            std::function<void()> act;
        };
        std::array<Disturbance, 6> const disturbances{{
            {"start", true, [this] { restart_daemon(); }},
            {"SIGHUP", true, [this] { hang_up(); }},
            {"master change", false, [this] { change_master(); }},
            {"changes alone", false, [] {}},
            {"broker killed", false, [this] { restart_broker(); }},
            {"checkpoint", false, [] { checkpoint(); }},
        }};
        for (int number = 0; number < count && !HasFailure(); ++number) {
            auto const& [name, starts, act] = disturbances.at(below(random, disturbances.size()));
            SCOPED_TRACE(fmt::format("round {}: {}", number, name));
            round(writers, starts, act);
        }
        report(fmt::format(
            "changes at random instants of starts, SIGHUPs, master changes, kills of the broker and "
            "checkpoints\t{} rounds, writers: {}\tevery output in step after each",
            count, writers));
    }

    /// Switches of all threads of a process, asked for or not.
    static long switches_of(pid_t process) {
        long sum = 0;
        for (auto const& task : std::filesystem::directory_iterator(fmt::format("/proc/{}/task", process))) {
            std::ifstream status{task.path() / "status"};
            for (std::string line; std::getline(status, line);) {
                if (auto const at = line.find("_ctxt_switches:"); at != std::string::npos) {
                    sum += std::atol(line.c_str() + line.find(':') + 1);
                }
            }
        }
        return sum;
    }

    Random random = seeded();
    std::shared_ptr<ipc::IIpc> bus;
    std::unique_ptr<Wanted> wanted;
    std::string session_manager_text; // of the last start
};

TEST_F(NoChangeIsLost, WithOneWriter) {
    start_everything();
    rounds_of_disturbances(rounds(60), 1);
}

TEST_F(NoChangeIsLost, WithFourWriters) {
    start_everything();
    rounds_of_disturbances(rounds(60), 4);
}

TEST_F(NoChangeIsLost, AsFastAsTheyCanBeCommitted) {
    start_everything();
    Rewrites rewrites;
    int const changes = rounds(20) * 100;
    long memory_early = 0;
    for (int number = 0; number < changes; ++number) {
        change_something(random);
        rewrites.count();
        if (number == changes / 4) {
            memory_early = own_kilobytes(); // what is allocated once is there by now
        }
    }
    expect_in_step();
    int zlog = 0;
    for (auto const& [name, count] : rewrites.count()) {
        zlog += name == "syslog-ng.conf" ? 0 : count;
    }
    int const reloads =
        rewrites.count().contains("syslog-ng.conf") ? rewrites.count().at("syslog-ng.conf") : 0;
    auto const memory_late = own_kilobytes();
    auto const figures =
        fmt::format("{} rewrites of zlog files, {} reloads of syslog-ng; own memory {} kB after a "
                    "quarter, {} kB at the end",
                    zlog, reloads, memory_early, memory_late);
    fmt::print("{} commits: {}\n", changes, figures);
    EXPECT_GT(zlog, 0);
    EXPECT_GT(reloads, 0);
    if (!sanitized) {
        EXPECT_LT(memory_late, memory_early + 1024);
    }
    report(
        fmt::format("changes as fast as they can be committed\t{} commits\tin step; {}", changes, figures));
}

TEST_F(NoChangeIsLost, WhenProcessesAreKilled) {
    start_everything();
    wait_until_serving();
    TornFileReader reader;
    // What each does comes at a random instant of a row of changes.
    std::array<std::function<void()>, 4> const disturbances{{
        [&] {
            daemon->kill();
            // The service manager would end what it leaves behind, too.
            EXPECT_TRUE(wait_until([] { return !a_command_runs(); }));
            start_daemon();
        },
        [&] {
            auto const level = std::to_string(below(random, 6));
            ChildProcess const writer{
                {.argv = {XPON_LOGCTL, "set", "module.snmp.*=" + level, "module.fsm_pon.ont.*=" + level,
                          "syslog.file.level=" + level},
                 .environment = {},
                 .output = scratch / "logctl"}};
            pass_time(random, std::chrono::milliseconds{30});
        }, // killed at the end of its life
        [&] { restart_broker(); },
        [&] {
            syslog_ng->kill();
            start_syslog_ng();
        },
    }};
    for (int number = 0; number < rounds(40) && !HasFailure(); ++number) {
        auto const which = below(random, disturbances.size());
        SCOPED_TRACE(fmt::format("round {}: disturbance {}", number, which));
        {
            Writers const writing{*this, 1, 3};
            pass_time(random, std::chrono::milliseconds{15});
            disturbances.at(which)();
        }
        expect_in_step();
        wait_until_serving();
    }
    reader.stop();
    fmt::print("{} files read\n", reader.files_read);
    EXPECT_THAT(reader.torn, testing::IsEmpty());
    hang_up(); // every file is written again, and with it the last temporaries go
    EXPECT_TRUE(wait_until([] { return count_entries(zlog_folder) == log_config::zlog_files.size(); }));
    set({{"syslog.file.level", "error"}}); // the last random one may let nothing through
    EXPECT_TRUE(wait_until_logged(log_file));
    report(fmt::format(
        "SIGKILL of the daemon, a writer, the broker, syslog-ng at random instants of changes\t{} kills"
        "\tevery output in step after each; {} files read meanwhile, none torn",
        rounds(40), reader.files_read));
}

TEST_F(NoChangeIsLost, AndNothingWakesUpMeanwhile) {
    if (thread_sanitized) {
        GTEST_SKIP() << "the sanitizer's own thread wakes up";
    }
    start_everything();
    set({{"module.snmp.TRAP", "debug"}, {"syslog.file.level", "debug"}, {"syslog.kernel.level", "debug"}});
    expect_in_step();
    auto const switches = [&] {
        return switches_of(daemon->process.pid()) + switches_of(broker->process.pid());
    };
    auto const some_within = [&](std::chrono::milliseconds time) {
        auto const before = switches();
        return wait_until([&] { return switches() != before; }, time);
    };
    ASSERT_TRUE(wait_until([&] { return !some_within(std::chrono::milliseconds{500}); })) << "never at rest";
    int const seconds = number_from_environment("XPON_IDLE_SECONDS", 3);
    EXPECT_FALSE(some_within(std::chrono::seconds{seconds}));
    auto const at_rest = switches();
    set({{"module.snmp.TRAP", "info"}});
    EXPECT_TRUE(wait_until([&] { return switches() != at_rest; })) << "a change does wake them";
    expect_in_step();
    report(fmt::format("idle daemon and broker\t{} s\tno thread of theirs ran", seconds));
}

} // namespace
} // namespace xpon::test
