#include "integration/board.hpp"

#include "kit/fifo.hpp"
#include "xpon/log_config/zlog_files/config_files.hpp"

namespace xpon::test {
namespace {

using testing::ElementsAre;

class Signals : public Board {
  protected:
    Signals() { start_tools(); }

    /// The daemon's descriptors and threads.
    std::pair<std::size_t, std::size_t> in_use() const { return {descriptors(), threads()}; }
};

TEST_F(Signals, BeforeReadyAreIgnored) {
    // The logging context opens this file and waits until somebody writes into it.
    Fifo const hold_up{std::string{zlog_folder} + "LOG-CONFIG.conf"};
    launch_daemon();
    ASSERT_TRUE(daemon->notifications.wait_for(starting));
    signal_daemon(SIGTERM);
    signal_daemon(SIGINT);
    signal_daemon(SIGHUP);
    ASSERT_TRUE(hold_up.feed(""));
    ASSERT_TRUE(daemon->wait_ready());
    EXPECT_TRUE(wait_until_logged(log_file));
    EXPECT_THAT(notified(), ElementsAre(starting, ready));
    signal_daemon(SIGINT);
    EXPECT_EQ(daemon->process.wait(), 0);
}

TEST_F(Signals, SighupRebuildsEverythingFromTheDatabase) {
    start_daemon();
    ASSERT_TRUE(wait_until_logged(log_file));
    auto const text = read_file(syslog_ng_conf);
    std::filesystem::remove(syslog_ng_conf);
    for (auto const& file : log_config::zlog_files) {
        std::filesystem::remove(zlog_folder + std::string{file.name});
    }
    signal_daemon(SIGHUP);
    ASSERT_TRUE(daemon->wait_ready());
    EXPECT_THAT(notified(), ElementsAre(starting, ready, stopping, starting, ready));
    EXPECT_TRUE(wait_until([&] { return contents(syslog_ng_conf) == text; }));
    for (auto const& file : log_config::zlog_files) {
        EXPECT_EQ(read_file(zlog_folder + std::string{file.name}),
                  golden("zlog_defaults/" + std::string{file.name}))
            << file.name;
    }
}

TEST_F(Signals, SighupFollowedBySigtermInTheSameCycleEndsWith0) {
    start_daemon();
    ASSERT_TRUE(wait_until_logged(log_file));
    daemon->process.kill(SIGSTOP); // so that both are pending before either is handled
    signal_daemon(SIGHUP);
    signal_daemon(SIGTERM);
    daemon->process.kill(SIGCONT);
    EXPECT_EQ(daemon->process.wait(), 0);
    EXPECT_THAT(notified(), ElementsAre(starting, ready, stopping));
}

TEST_F(Signals, TwoHundredRestartsLeaveNothingBehind) {
    start_daemon();
    ASSERT_TRUE(wait_until_logged(log_file));
    ASSERT_TRUE(wait_until([&] { return children().empty(); })); // a command that runs takes some for itself
    auto const before = in_use();
    for (int round = 0; round < 200; ++round) {
        signal_daemon(SIGHUP);
        ASSERT_TRUE(daemon->wait_ready()) << round;
    }
    EXPECT_TRUE(wait_until([&] { return in_use() == before; }))
        << testing::PrintToString(std::pair{in_use(), before});
    EXPECT_TRUE(wait_until([&] { return children().empty(); }));
    signal_daemon(SIGTERM);
    EXPECT_EQ(daemon->process.wait(), 0);
}

TEST_F(Signals, AStormOfSighupsLeavesTheDaemonServing) {
    start_daemon();
    ASSERT_TRUE(wait_until_logged(log_file));
    ASSERT_TRUE(wait_until([&] { return children().empty(); })); // a command that runs takes some for itself
    auto const before = in_use();
    signal_daemon(SIGHUP);
    for (int count = 1; count < 10000; ++count) {
        daemon->process.kill(SIGHUP); // blindly, whatever the daemon does at the moment
    }
    ASSERT_TRUE(daemon->wait_ready()); // it asked for one restart at least
    // More of them may still be under way; each ends with as many READY=1 as starts.
    EXPECT_TRUE(wait_until([&] {
        return notified().back() == ready && in_use() == before && children().empty();
    })) << testing::PrintToString(std::pair{in_use(), before});
    EXPECT_TRUE(wait_until_logged(log_file));
    EXPECT_EQ(stop_starting_daemon(), 0);
}

TEST_F(Signals, AllThreadsButTheMainOneBlockThem) {
    start_daemon();
    ASSERT_TRUE(wait_until_logged(log_file));
    constexpr std::uint64_t the_three = 1U << (SIGTERM - 1) | 1U << (SIGINT - 1) | 1U << (SIGHUP - 1);
    for (auto const& task : std::filesystem::directory_iterator(proc() / "task")) {
        auto const is_main = task.path().filename() == std::to_string(daemon->process.pid());
        EXPECT_EQ(blocked_signals(task.path()) & the_three, is_main ? 0 : the_three) << task.path();
    }
}

} // namespace
} // namespace xpon::test
