#include "xpon/log_config/rsh/pts_poller.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <optional>
#include <set>
#include <thread>

#include <gmock/gmock.h>

#include "core/failure.hpp"
#include "core/unique_fd.hpp"
#include "kit/event_queue.hpp"
#include "kit/fake_logger.hpp"
#include "kit/fake_system_wrapper.hpp"
#include "kit/matchers.hpp"
#include "kit/scratch_folder.hpp"

namespace {

std::atomic<int> waits_begun;

// What the kernel is made to answer instead of doing the call: an error number, 0 to do it. To use up the
// descriptors would also take away those that a sanitizer needs for its own checks.
std::atomic<int> inotify_refusal;
std::atomic<int> pipe_refusal;
std::atomic<int> poll_refusal;

bool refused(int error_number) {
    errno = error_number != 0 ? error_number : errno;
    return error_number != 0;
}

} // namespace

extern "C" {

int __real_inotify_init1(int flags);
int __wrap_inotify_init1(int flags) {
    return refused(inotify_refusal) ? -1 : __real_inotify_init1(flags);
}

int __real_pipe(int* ends);
int __wrap_pipe(int* ends) {
    return refused(pipe_refusal) ? -1 : __real_pipe(ends);
}

// Shows as well that the loop has found its flag raised and is about to wait: a stop from then on reaches it
// as a wake-up.
int __real_poll(pollfd* fds, nfds_t count, int timeout);
int __wrap_poll(pollfd* fds, nfds_t count, int timeout) {
    ++waits_begun;
    return refused(poll_refusal) ? -1 : __real_poll(fds, count, timeout);
}
}

namespace xpon::log_config {
namespace {

using core::Error;
using core::fail;
using core::LogLevel;
using core::UniqueFd;
using test::EventQueue;
using test::FakeLogger;
using test::FakeSystemWrapper;
using test::IsError;
using test::IsOk;
using test::wait_until;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

std::set<int> open_descriptors() {
    std::set<int> descriptors;
    for (auto const& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        descriptors.insert(std::stoi(entry.path().filename()));
    }
    std::erase_if(descriptors, [](int fd) { return fcntl(fd, F_GETFD) == -1; }); // the iterator's own
    return descriptors;
}

/// Makes the kernel refuse one of the calls above.
class Refusal {
  public:
    Refusal(std::atomic<int>& refused_call, int error_number)
      : call{refused_call} {
        call = error_number;
    }
    ~Refusal() { call = 0; }
    Refusal(Refusal const&) = delete;
    Refusal& operator=(Refusal const&) = delete;

  private:
    std::atomic<int>& call;
};

/// Runs a poller's loop on a thread, waiting as soon as this is constructed, and ends it.
class RunningPoller {
  public:
    explicit RunningPoller(PtsPoller& to_run)
      : poller{to_run}
      , thread{[this] { result.push(poller.polling()); }} {
        EXPECT_TRUE(wait_until([this] { return waits_begun > waits_before; }));
    }
    ~RunningPoller() {
        std::ignore = poller.stop();
        thread.join();
    }
    RunningPoller(RunningPoller const&) = delete;
    RunningPoller& operator=(RunningPoller const&) = delete;

    std::optional<Result<void>> wait_for_end() { return result.pop(); }

  private:
    PtsPoller& poller;
    int waits_before = waits_begun;
    EventQueue<Result<void>> result;
    std::thread thread;
};

class PtsPollerTest : public testing::Test {
  protected:
    std::unique_ptr<PtsPoller> poller_with(UpdateConfigCb callback) {
        return std::make_unique<PtsPoller>(folder.path(), system, logger, std::move(callback));
    }

    UpdateConfigCb queueing() {
        return [this](RemoteLoggerEvent const& event) -> Result<void> {
            events.push(event);
            return core::success();
        };
    }

    std::string terminal(std::string const& name) const { return folder / name; }

    /// A terminal appears: one create event.
    void open_terminal(std::string const& name) {
        ASSERT_EQ(mkfifo(terminal(name).c_str(), 0600), 0) << name;
    }

    /// A terminal is closed: one close event. It is gone first, or stays.
    void close_terminal(std::string const& name, bool stays = false) {
        UniqueFd const slave{open(terminal(name).c_str(), O_RDWR | O_CLOEXEC)};
        ASSERT_TRUE(slave) << name;
        if (!stays) {
            std::filesystem::remove(terminal(name));
        }
    }

    void expect_event(std::int64_t number, RemoteLoggerAction action) {
        auto const event = events.pop();
        ASSERT_TRUE(event) << "no event for terminal " << number;
        EXPECT_EQ(event->pts_number, number);
        EXPECT_EQ(event->action, action);
    }

    /// Runs a poller that reports to `events` and has reported terminal 5.
    void run_with_terminal_5() {
        default_poller = poller_with(queueing());
        default_run.emplace(*default_poller);
        open_terminal("5");
        expect_event(5, RemoteLoggerAction::Add);
    }

    std::string sync_command() const { return "sync " + folder.path().string() + " &> /dev/null"; }

    test::ScratchFolder folder;
    std::shared_ptr<FakeSystemWrapper> system = std::make_shared<FakeSystemWrapper>();
    std::shared_ptr<FakeLogger> logger = std::make_shared<FakeLogger>();
    EventQueue<RemoteLoggerEvent> events;
    std::unique_ptr<PtsPoller> default_poller;
    std::optional<RunningPoller> default_run;
};

TEST_F(PtsPollerTest, ANewTerminalIsReportedWithItsBareName) {
    run_with_terminal_5();
    EXPECT_THAT(logger->texts(), ElementsAre("Poller start", "Add remote shell 5"));
    EXPECT_EQ(logger->lines().at(1).level, LogLevel::Debug);
    EXPECT_THAT(system->commands(), IsEmpty());
}

TEST_F(PtsPollerTest, AClosedTerminalThatIsGoneIsReportedWithItsFullPath) {
    run_with_terminal_5();
    close_terminal("5");
    expect_event(5, RemoteLoggerAction::Remove);
    EXPECT_THAT(system->commands(), ElementsAre(sync_command()));
    EXPECT_THAT(logger->texts(),
                ElementsAre("Poller start", "Add remote shell 5", "Remove remote shell " + terminal("5")));
}

TEST_F(PtsPollerTest, AClosedTerminalThatALiveShellHoldsIsNotReported) {
    run_with_terminal_5();
    close_terminal("5", true);
    open_terminal("6"); // comes behind the close: its event shows that the close has been handled
    expect_event(6, RemoteLoggerAction::Add);
    auto const script =
        "counter=0\nfor pid in $(fuser \"" + terminal("5") +
        "\" 2> /dev/null)\ndo\n    counter=$((counter+1))\ndone\n\nif [ \"$counter\" -eq 1 ]; then\n"
        "    ps_out=$(pgrep syslog)\n    if [ \"$ps_out\" -eq \"$pid\" ]; then\n       exit 1\n"
        "    fi\nfi\nexit 0";
    EXPECT_THAT(system->commands(), ElementsAre(sync_command(), script));
    EXPECT_EQ(script.size(), 209 - 2 + terminal("5").size());
}

TEST_F(PtsPollerTest, AnyNonZeroStatusOfTheCheckMeansThatOnlySyslogHoldsTheTerminal) {
    std::atomic<int> status;
    system->answer = [&](std::string const& command) -> Result<int> {
        return command.starts_with("counter") ? status.load() : 0;
    };
    run_with_terminal_5();
    for (int const non_zero : {1, 137}) {
        status = non_zero;
        close_terminal("5", true);
        expect_event(5, RemoteLoggerAction::Remove);
    }
}

TEST_F(PtsPollerTest, ACheckThatCannotRunIsLoggedAndReportsNothing) {
    system->answer = [](std::string const& command) -> Result<int> {
        if (command.starts_with("counter")) {
            return fail(Error::CommonError, "no shell");
        }
        return 0;
    };
    run_with_terminal_5();
    close_terminal("5", true);
    open_terminal("6");
    expect_event(6, RemoteLoggerAction::Add);
    EXPECT_THAT(logger->texts(),
                ElementsAre("Poller start", "Add remote shell 5",
                            "Failed remote shell check need close " + terminal("5"), "Add remote shell 6"));
    EXPECT_EQ(logger->lines().at(2).level, LogLevel::Error);
}

TEST_F(PtsPollerTest, ASyncThatCannotRunIsLoggedAndTheCloseIsStillHandled) {
    system->answer = [](auto const&) -> Result<int> { return fail(Error::CommonError, "no shell"); };
    run_with_terminal_5();
    close_terminal("5");
    expect_event(5, RemoteLoggerAction::Remove);
    EXPECT_THAT(logger->texts(), ElementsAre("Poller start", "Add remote shell 5",
                                             "Failed sync for directory " + folder.path().string(),
                                             "Remove remote shell " + terminal("5")));
    EXPECT_THAT(logger->levels(),
                ElementsAre(LogLevel::Debug, LogLevel::Debug, LogLevel::Error, LogLevel::Debug));
}

TEST_F(PtsPollerTest, TheStatusOfSyncIsIgnored) {
    system->answer = [](auto const&) -> Result<int> { return 1; };
    run_with_terminal_5();
    close_terminal("5");
    expect_event(5, RemoteLoggerAction::Remove);
    EXPECT_THAT(system->commands(), ElementsAre(sync_command()));
}

TEST_F(PtsPollerTest, ANameThatIsNoNumberGivesTerminal0) {
    auto const poller = poller_with(queueing());
    RunningPoller const running{*poller};
    constexpr std::pair<char const*, std::int64_t> cases[] = {
        {"ptmx", 0}, {"12abc", 12}, {"0", 0}, {"007", 7}, {"-3", -3}, {"99999999999", 99999999999}};
    for (auto const& [name, number] : cases) {
        open_terminal(name);
        expect_event(number, RemoteLoggerAction::Add);
    }
}

TEST_F(PtsPollerTest, EventsOfOneReadAreHandledInTheirOrder) {
    auto const poller = poller_with(queueing());
    open_terminal("1"); // watched since construction, read at once when the loop starts
    open_terminal("2");
    close_terminal("1");
    open_terminal("3");
    RunningPoller const running{*poller};
    expect_event(1, RemoteLoggerAction::Add);
    expect_event(2, RemoteLoggerAction::Add);
    expect_event(1, RemoteLoggerAction::Remove);
    expect_event(3, RemoteLoggerAction::Add);
}

TEST_F(PtsPollerTest, AfterMoreEventsThanTheKernelKeepsTheLoopGoesOn) {
    auto const kept = std::stol(test::read_file("/proc/sys/fs/inotify/max_queued_events"));
    auto const poller = poller_with(queueing());
    for (long number = 0; number < kept + 10; ++number) {
        // Two names by turns: the kernel makes one event of two equal ones.
        std::string const name{number % 2 == 0 ? "1" : "2"};
        open_terminal(name);
        std::filesystem::remove(terminal(name));
    }
    RunningPoller const running{*poller};
    for (long number = 0; number < kept; ++number) {
        expect_event(number % 2 + 1, RemoteLoggerAction::Add);
    }
    open_terminal("3");
    expect_event(3, RemoteLoggerAction::Add);
    EXPECT_TRUE(events.empty()) << "what did not fit is lost";
}

TEST_F(PtsPollerTest, ACallbackErrorEndsTheLoopWithThatErrorAndDropsTheRest) {
    std::vector<std::int64_t> seen;
    auto const poller = poller_with([&](RemoteLoggerEvent const& event) -> Result<void> {
        seen.push_back(event.pts_number);
        if (event.pts_number == 2) {
            return fail(Error::Overflow, "too many");
        }
        return core::success();
    });
    for (auto const* const name : {"1", "2", "3"}) {
        open_terminal(name);
    }
    EXPECT_THAT(poller->polling(), IsError(Error::Overflow, "too many"));
    EXPECT_THAT(seen, ElementsAre(1, 2));
    EXPECT_TRUE(poller->get_polling_flag()) << "an error leaves the flag as it was";
    EXPECT_THAT(poller->stop(), IsOk()) << "a later stop is harmless";
}

TEST_F(PtsPollerTest, ACallbackErrorOnRemoveEndsTheLoopAsWell) {
    auto const poller = poller_with([&](RemoteLoggerEvent const& event) -> Result<void> {
        if (event.action == RemoteLoggerAction::Remove) {
            return fail(Error::CommonError, "broken");
        }
        return core::success();
    });
    open_terminal("1");
    close_terminal("1");
    EXPECT_THAT(poller->polling(), IsError(Error::CommonError, "broken"));
}

TEST_F(PtsPollerTest, WithoutACallbackEventsAreDroppedSilentlyButTheCommandsRun) {
    EventQueue<std::string> commands;
    system->answer = [&](std::string const& command) -> Result<int> {
        commands.push(command);
        return 1; // the check asks for a removal
    };
    auto const poller = poller_with({});
    RunningPoller const running{*poller};
    open_terminal("5");
    close_terminal("5", true);
    EXPECT_EQ(commands.pop(), sync_command());
    EXPECT_THAT(commands.pop().value_or(""), StartsWith("counter=0\n"));
    close_terminal("5", true); // its command comes when the first close has been dealt with
    EXPECT_EQ(commands.pop(), sync_command());
    EXPECT_THAT(logger->texts(), ElementsAre("Poller start"));
}

TEST_F(PtsPollerTest, ACallbackInstalledLaterGetsTheEventsFromThenOn) {
    auto const poller = poller_with({});
    EXPECT_THAT(poller->set_update_config_cb(queueing()), IsOk());
    RunningPoller const running{*poller};
    open_terminal("4");
    expect_event(4, RemoteLoggerAction::Add);
}

TEST_F(PtsPollerTest, StopEndsTheLoopWithSuccessAndLogsNothing) {
    auto const poller = poller_with(queueing());
    RunningPoller running{*poller};
    EXPECT_THAT(poller->stop(), IsOk());
    auto const result = running.wait_for_end();
    ASSERT_TRUE(result);
    EXPECT_THAT(*result, IsOk());
    EXPECT_FALSE(poller->get_polling_flag());
    EXPECT_THAT(logger->texts(), ElementsAre("Poller start"));
}

TEST_F(PtsPollerTest, StopBeforeTheLoopDoesNothingAndTheLoopThenRunsUntilTheNextStop) {
    auto const poller = poller_with(queueing());
    EXPECT_FALSE(poller->get_polling_flag());
    EXPECT_THAT(poller->stop(), IsOk());
    RunningPoller const running{*poller};
    open_terminal("5");
    expect_event(5, RemoteLoggerAction::Add);
}

TEST_F(PtsPollerTest, AStopFromInsideTheLoopIsLoggedIfNoWakeUpComes) {
    // The flag is found false at the top of a pass, before the wake-up is polled for: nothing else ends it
    // so.
    PtsPoller* self = nullptr;
    auto const poller = poller_with([&](RemoteLoggerEvent const&) -> Result<void> { return self->stop(); });
    self = poller.get();
    open_terminal("5");
    EXPECT_THAT(poller->polling(), IsOk());
    EXPECT_THAT(logger->texts(), ElementsAre("Poller start", "Add remote shell 5", "Poller stop"));
    EXPECT_THAT(logger->levels(), Each(LogLevel::Debug));
    EXPECT_FALSE(poller->get_polling_flag());
}

TEST_F(PtsPollerTest, NothingIsWrittenForALevelThatIsOff) {
    logger = std::make_shared<FakeLogger>(LogLevel::Fatal);
    system->answer = [](auto const&) -> Result<int> { return fail(Error::CommonError, "no shell"); };
    run_with_terminal_5();
    close_terminal("5");
    expect_event(5, RemoteLoggerAction::Remove);
    EXPECT_THAT(logger->texts(), IsEmpty());
}

TEST_F(PtsPollerTest, AFailingPollEndsTheLoop) {
    auto const poller = poller_with(queueing());
    Refusal const no_poll{poll_refusal, EINVAL};
    EXPECT_THAT(poller->polling(), IsError(Error::ErrorCApi, "poll() failed (22)"));
    EXPECT_TRUE(poller->get_polling_flag());
}

TEST_F(PtsPollerTest, AFailingReadEndsTheLoop) {
    auto const before = open_descriptors();
    auto const poller = poller_with(queueing());
    for (int const fd : open_descriptors()) {
        if (!before.contains(fd)) {
            close(fd);
            break; // the first one opened is the inotify descriptor
        }
    }
    EXPECT_THAT(poller->polling(), IsError(Error::ErrorCApi, "read() failed (9)"));
    EXPECT_TRUE(poller->get_polling_flag());
}

TEST_F(PtsPollerTest, AWakeUpThatCannotBeWrittenIsReportedByStop) {
    auto const before = open_descriptors();
    PtsPoller* self = nullptr;
    Result<void> stopped = core::success();
    auto const poller = poller_with([&](RemoteLoggerEvent const&) -> Result<void> {
        int write_end = -1; // the last one that the poller opened
        for (int const fd : open_descriptors()) {
            write_end = before.contains(fd) ? write_end : fd;
        }
        close(write_end);
        stopped = self->stop();
        return core::success();
    });
    self = poller.get();
    open_terminal("5");
    EXPECT_THAT(poller->polling(), IsOk());
    EXPECT_THAT(stopped, IsError(Error::ErrorCApi, "write() failed (9)"));
}

TEST_F(PtsPollerTest, AFolderThatIsMissingIsReportedWithErrno) {
    EXPECT_THAT([&] { PtsPoller(folder / "none", system, logger, {}); },
                testing::ThrowsMessage<std::runtime_error>("inotify_add_watch failed (2)"));
}

TEST_F(PtsPollerTest, DescriptorsThatTheKernelRefusesAreReportedWithErrno) {
    {
        Refusal const no_inotify{inotify_refusal, EMFILE};
        EXPECT_THAT([&] { poller_with({}); },
                    testing::ThrowsMessage<std::runtime_error>("inotify_init1 failed (24)"));
    }
    auto const before = open_descriptors();
    {
        Refusal const no_pipe{pipe_refusal, ENFILE};
        EXPECT_THAT([&] { poller_with({}); },
                    testing::ThrowsMessage<std::runtime_error>("pipe() failed (23)"));
    }
    for (int const fd : open_descriptors()) {
        if (!before.contains(fd)) {
            close(fd); // a failed construction leaves what it had opened
        }
    }
}

TEST_F(PtsPollerTest, NoDescriptorIsLeftAfterDestruction) {
    auto const before = open_descriptors();
    for (int round = 0; round < 20; ++round) {
        auto const poller = poller_with(queueing());
        EXPECT_EQ(open_descriptors().size(), before.size() + 3);
    }
    EXPECT_EQ(open_descriptors(), before);
}

using PtsPollerDeathTest = PtsPollerTest;

TEST_F(PtsPollerDeathTest, AnEmptyLoggerStopsTheProcess) {
    PtsPoller poller{folder.path(), system, nullptr, {}};
    EXPECT_DEATH(std::ignore = poller.polling(), "");
}

} // namespace
} // namespace xpon::log_config
