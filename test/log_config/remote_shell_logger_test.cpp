#include "xpon/log_config/rsh/remote_shell_logger.hpp"

#include <csignal>
#include <sys/stat.h>

#include <thread>

#include <gmock/gmock.h>

#include "kit/event_queue.hpp"
#include "kit/fake_logger.hpp"
#include "kit/fake_system_wrapper.hpp"
#include "kit/matchers.hpp"
#include "kit/names_in.hpp"
#include "kit/process_status.hpp"
#include "kit/scratch_folder.hpp"

namespace xpon::log_config {
namespace {

using test::EventQueue;
using test::FakeLogger;
using test::FakeSystemWrapper;
using test::IsOk;
using test::wait_until;

class RemoteShellLoggerTest : public testing::Test {
  protected:
    /// The loop has to be running before a destructor may ask it to stop.
    void wait_for_start() {
        EXPECT_TRUE(wait_until([this] { return !logger->lines().empty(); }));
    }

    void open_terminal(std::string const& name) { ASSERT_EQ(mkfifo((folder / name).c_str(), 0600), 0); }

    UpdateConfigCb queueing() {
        return [this](RemoteLoggerEvent const& event) -> Result<void> {
            events.push(event);
            return core::success();
        };
    }

    test::ScratchFolder folder;
    std::shared_ptr<FakeSystemWrapper> system = std::make_shared<FakeSystemWrapper>();
    std::shared_ptr<FakeLogger> logger = std::make_shared<FakeLogger>();
    EventQueue<RemoteLoggerEvent> events;
};

TEST_F(RemoteShellLoggerTest, PollsFromConstructionOn) {
    RemoteShellLogger const shells{folder.path(), system, logger, queueing()};
    wait_for_start();
    open_terminal("3");
    auto const event = events.pop();
    ASSERT_TRUE(event);
    EXPECT_EQ(event->pts_number, 3);
}

TEST_F(RemoteShellLoggerTest, EventsBeforeACallbackIsInstalledAreDropped) {
    EventQueue<std::string> commands;
    system->answer = [&](std::string const& command) -> Result<int> {
        commands.push(command);
        return 0;
    };
    RemoteShellLogger shells{folder.path(), system, logger, {}};
    wait_for_start();
    test::write_file(folder / "3",
                     ""); // created and closed: the close's commands show that both were handled
    EXPECT_TRUE(commands.pop());
    EXPECT_TRUE(commands.pop());
    EXPECT_THAT(shells.set_update_config_cb(queueing()), IsOk());
    open_terminal("4");
    auto const event = events.pop();
    ASSERT_TRUE(event);
    EXPECT_EQ(event->pts_number, 4);
    EXPECT_TRUE(events.empty());
}

TEST_F(RemoteShellLoggerTest, AnErrorOfTheLoopEndsTheThreadSilently) {
    EventQueue<int> ends;
    {
        RemoteShellLogger const shells{folder.path(), system, logger, [&](auto const&) -> Result<void> {
                                           ends.push(1);
                                           return core::ErrorPayload{core::Error::CommonError};
                                       }};
        wait_for_start();
        open_terminal("3");
        EXPECT_TRUE(ends.pop());
    } // the thread has ended, and the error with it
    EXPECT_THAT(logger->texts(), testing::ElementsAre("Poller start", "Add remote shell 3"));
}

TEST_F(RemoteShellLoggerTest, AStopThatComesBeforeTheLoopIsNotSeen) {
    // The logger tells when the loop begins; what then ends it is an error.
    class HoldingLogger : public FakeLogger {
      public:
        bool is_enabled(core::LogLevel level) const override {
            started.push(1);
            std::ignore = go_on.pop();
            return FakeLogger::is_enabled(level);
        }
        mutable EventQueue<int> started;
        mutable EventQueue<int> go_on;
    };
    auto const holding = std::make_shared<HoldingLogger>();
    PtsPoller poller{folder.path(), system, holding, [](auto const&) -> Result<void> {
                         return core::ErrorPayload{core::Error::CommonError};
                     }};
    EXPECT_THAT(poller.stop(), IsOk()); // before the flag is raised: nothing is written
    EventQueue<Result<void>> ended;
    std::thread thread{[&] { ended.push(poller.polling()); }};
    EXPECT_TRUE(holding->started.pop());
    holding->go_on.push(1);
    holding->go_on.push(1); // for the line about the terminal
    EXPECT_TRUE(ended.empty()) << "the stop was lost";
    open_terminal("3");
    auto const result = ended.pop();
    thread.join();
    ASSERT_TRUE(result);
    EXPECT_THAT(*result, test::IsError(core::Error::CommonError, ""));
}

TEST_F(RemoteShellLoggerTest, AMissingFolderThrowsAndStartsNoThread) {
    auto const before = test::names_in("/proc/self/task");
    EXPECT_THAT([&] { RemoteShellLogger(folder / "none", system, logger, {}); },
                testing::ThrowsMessage<std::runtime_error>("inotify_add_watch failed (2)"));
    // Not all of them any more, perhaps: a joined thread stays listed for a moment.
    EXPECT_THAT(test::names_in("/proc/self/task"), testing::IsSubsetOf(before));
}

TEST_F(RemoteShellLoggerTest, ItsThreadIsReachedByNoSignal) {
    EventQueue<std::uint64_t> blocked;
    RemoteShellLogger const shells{folder.path(), system, logger, [&](auto const&) -> Result<void> {
                                       blocked.push(test::blocked_signals());
                                       return core::success();
                                   }};
    wait_for_start();
    open_terminal("3");
    EXPECT_EQ(blocked.pop(), test::every_signal);
    sigset_t mine;
    pthread_sigmask(SIG_SETMASK, nullptr, &mine);
    EXPECT_EQ(sigismember(&mine, SIGHUP), 0) << "the creator's own mask is as it was";
}

} // namespace
} // namespace xpon::log_config
