// SIGTERM in every phase of the daemon's life ends it with status 0 and leaves whole files.

#include "integration/followed_board.hpp"
#include "integration/terminal.hpp"
#include "integration/torn_file_reader.hpp"
#include "kit/fifo.hpp"
#include "kit/random.hpp"
#include "kit/report.hpp"

namespace xpon::test {
namespace {

class Stops;

/// A phase in which the daemon has syslog-ng reload, which is where it can be held.
struct Phase {
    char const* name;
    void (Stops::*enter)();
    bool serving_before; ///< it begins with a daemon that serves
};

void PrintTo(Phase const& phase, std::ostream* stream) {
    *stream << phase.name;
}

class Stops : public FollowedBoard {
  public:
    void launch() { launch_daemon(); }
    void change() { set(a_change_of_every_output("debug")); }
    void hang_up() { signal_daemon(SIGHUP); }
    void open_terminal() { terminal.emplace(); }

  protected:
    Stops() { start_tools(); }

    /// From now on a reload says at `begun` that it has begun, and waits at `go_on`.
    void hold_reloads() {
        replace_reload_program(
            fmt::format(": >{}; : <{}; exec {} \"$@\"", begun.path(), go_on.path(), reload_program_aside));
    }

    static std::vector<std::string> temporaries() {
        std::vector<std::string> found;
        for (auto const& folder :
             {std::filesystem::path{zlog_folder}, std::filesystem::path{"/etc/syslog-ng"}}) {
            for (auto const& entry : std::filesystem::directory_iterator{folder}) {
                if (entry.path().filename().string().find(".tmp") != std::string::npos) {
                    found.push_back(entry.path());
                }
            }
        }
        return found;
    }

    std::optional<Terminal> terminal;
    Fifo begun{scratch / "begun"};
    Fifo go_on{scratch / "go-on"};
};

class StopsDuring : public Stops, public testing::WithParamInterface<Phase> {};

TEST_P(StopsDuring, APhaseEndWithStatus0AndLeaveWholeFiles) {
    auto const& phase = GetParam();
    std::optional<TornFileReader> reader;
    if (phase.serving_before) {
        start_daemon();
        wait_until_serving();
        reader.emplace();
    }
    hold_reloads();
    (this->*phase.enter)();
    ASSERT_TRUE(begun.wait_for_writer());
    signal_daemon(SIGTERM);
    ASSERT_TRUE(go_on.feed(""));
    EXPECT_EQ(daemon->process.wait(), 0);
    EXPECT_THAT(temporaries(), testing::IsEmpty());
    if (reader) {
        reader->stop();
        EXPECT_THAT(reader->torn, testing::IsEmpty());
    }
    terminal.reset();

    put_reload_program_back();
    start_daemon();
    wait_until_serving();
    expect_in_step();
    EXPECT_EQ(stop_daemon(), 0);
}

INSTANTIATE_TEST_SUITE_P(, StopsDuring,
                         testing::Values(Phase{"TheFirstConfiguration", &Stops::launch, false},
                                         Phase{"AChange", &Stops::change, true},
                                         Phase{"ARestart", &Stops::hang_up, true},
                                         Phase{"ATerminalsEvent", &Stops::open_terminal, true}),
                         [](auto const& tested) { return tested.param.name; });

TEST_F(Stops, DuringAReloadThatHangsWaitForItsLimit) {
    start_daemon();
    wait_until_serving();
    hold_reloads();
    change();
    ASSERT_TRUE(begun.wait_for_writer());
    signal_daemon(SIGTERM);
    EXPECT_EQ(daemon->process.wait(std::chrono::seconds{60}), 0) << "a command is killed after 30 s";
    EXPECT_THAT(temporaries(), testing::IsEmpty());
}

TEST_F(Stops, AtAnyInstantEndWithStatus0AndLeaveWholeFiles) {
    auto random = seeded();
    start_daemon();
    wait_until_serving();
    EXPECT_EQ(stop_daemon(), 0);
    TornFileReader reader;
    int const stops = rounds(30);
    for (int round = 0; round < stops && !HasFailure(); ++round) {
        set(a_change_of_every_output(round % 2 == 0 ? "debug" : "error"));
        launch_daemon();
        // A third is stopped while it starts, a third while it restarts, a third while it follows changes.
        if (auto const what = below(random, 3); what > 0) {
            ASSERT_TRUE(daemon->wait_ready());
            if (what == 1) {
                hang_up();
            } else {
                set(a_change_of_every_output("info"));
            }
        }
        std::this_thread::sleep_for(std::chrono::microseconds{below(random, 60'000)});
        // A reload that is under way, which may take 30 s, is waited for.
        auto const status = stop_starting_daemon(std::chrono::seconds{60});
        EXPECT_TRUE(status) << "it has told " << testing::PrintToString(notified())
                            << ", it waits for process " << children();
        // Before it has set up its handlers the signal ends it, as it would end any program.
        EXPECT_TRUE(status == 0 || (status == 128 + SIGTERM && notified().empty())) << status.value_or(-1);
    }
    start_daemon();
    wait_until_serving();
    expect_in_step();
    reader.stop();
    EXPECT_THAT(reader.torn, testing::IsEmpty()) << "of " << reader.files_read << " files read";
    EXPECT_THAT(temporaries(), testing::IsEmpty());
    EXPECT_EQ(stop_daemon(), 0);
    report(
        fmt::format("SIGTERM\t{} times at random instants of start, restart and change\tstatus 0; {} files "
                    "read, none torn",
                    stops, reader.files_read));
}

} // namespace
} // namespace xpon::test
