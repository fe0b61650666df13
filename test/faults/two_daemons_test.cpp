// Two daemons on one board, as when one is started by hand beside the service.
#include "integration/followed_board.hpp"
#include "integration/torn_file_reader.hpp"
#include "kit/random.hpp"
#include "kit/report.hpp"

namespace xpon::test {
namespace {

class TwoDaemons : public FollowedBoard {
  protected:
    /// Makes each call that brings something to the disk wait, as on a slow one.
    std::unique_ptr<Program> slow_disk_down(pid_t pid, std::chrono::microseconds delay) {
        return tamper_with(pid, "write,fdatasync", fmt::format("delay_enter={}", delay.count()));
    }

    /// The first one; the other is `daemon`.
    std::unique_ptr<Program> service;
};

TEST_F(TwoDaemons, OnASlowDiskTearNoFile) {
    start_everything();
    service = std::move(daemon);
    start_daemon();
    auto const first = slow_disk_down(service->process.pid(), std::chrono::milliseconds{2});
    auto const second = slow_disk_down(daemon->process.pid(), std::chrono::milliseconds{20});
    wait_until_serving();
    TornFileReader reader;
    int const changes = rounds(6);
    for (int change = 0; change < changes; ++change) {
        set(a_change_of_every_module(change % 2 == 0 ? "debug" : "error"));
        expect_in_step();
    }
    reader.stop();
    EXPECT_THAT(reader.torn, testing::IsEmpty()) << "of " << reader.files_read << " files read";
    for (auto const& tracer : {first.get(), second.get()}) {
        tracer->kill(); // at SIGTERM it may wait for the next system call first
    }
    EXPECT_EQ(stop_daemon(), 0);
    std::swap(daemon, service);
    EXPECT_EQ(stop_daemon(), 0);
    for (auto const& entry : std::filesystem::directory_iterator{zlog_folder}) {
        EXPECT_TRUE(entry.path().extension() == ".conf") << entry.path();
    }
    report("two daemons on one board	both write the same files; strace delays each write and fdatasync of "
           "one by 2 ms, of the other by 20 ms	nothing; no output is delayed");
}

} // namespace
} // namespace xpon::test
