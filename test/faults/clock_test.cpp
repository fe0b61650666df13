// The clock of the board jumps: nothing that waits takes notice.
#include <filesystem>

#include <sys/mount.h>

#include "integration/followed_board.hpp"
#include "kit/report.hpp"
#include "kit/sanitized.hpp"

namespace xpon::test {
namespace {

class Clock : public FollowedBoard {
  protected:
    void SetUp() override {
        for (auto const& folder : std::filesystem::directory_iterator{"/usr/lib"}) {
            if (auto const path = folder.path() / "faketime/libfaketimeMT.so.1";
                std::filesystem::exists(path)) {
                library = path;
            }
        }
        if (library.empty()) {
            GTEST_SKIP() << "there is no libfaketime";
        }
        if (sanitized) {
            GTEST_SKIP() << "a sanitizer wants to be loaded first";
        }
    }

    void jump(std::string const& by) { write_file(offset, by + "\n"); }

    /// Has the program run by a clock that `jump` sets. How long something takes stays true.
    std::vector<std::string> with_own_clock(std::vector<std::string> argv) const {
        argv.insert(argv.begin(),
                    {"env", "LD_PRELOAD=" + library.string(), "FAKETIME_TIMESTAMP_FILE=" + offset.string(),
                     "FAKETIME_NO_CACHE=1", "FAKETIME_DONT_FAKE_MONOTONIC=1"});
        return argv;
    }

    std::string year() {
        auto const output = scratch / "year";
        std::filesystem::remove(output);
        EXPECT_EQ(ChildProcess({.argv = with_own_clock({"date", "+%Y"}), .environment = {}, .output = output})
                      .wait(),
                  0);
        return contents(output);
    }

    std::filesystem::path library;
    std::filesystem::path offset = scratch / "offset";
};

TEST_F(Clock, JumpsCostNoChangeAndNoTime) {
    jump("+0");
    auto const now = year();
    start_journald();
    start_syslog_ng();
    broker = start(with_own_clock({XPON_BROKER}));
    ASSERT_TRUE(broker->wait_ready());
    daemon = start(with_own_clock({XPON_DAEMON}));
    ASSERT_TRUE(daemon->wait_ready());
    wait_until_serving();
    auto const folder_in_the_way = zlog_path(snmp);
    for (auto const* const by : {"+5y", "-20y", "+0"}) {
        // A change fails, and is waiting for its next try when the clock jumps.
        std::filesystem::remove(folder_in_the_way);
        std::filesystem::create_directory(folder_in_the_way);
        set(a_change_of_every_output(*by == '-' ? "error" : "debug"));
        EXPECT_TRUE(holds(printk, Wanted{database}.kernel()));
        jump(by);
        EXPECT_EQ(year() == now, *by == '+' && by[1] == '0');
        std::filesystem::remove(folder_in_the_way);
        expect_in_step();
        wait_until_serving();
    }
    EXPECT_EQ(notified().size(), 2) << "the daemon was restarted";
    EXPECT_EQ(stop_daemon(), 0);
    EXPECT_EQ(broker->process.terminate(), 0);
    if (!HasFailure()) {
        report("the clock jumps\t5 years ahead, 20 back, to the right time, while a failed change waits for "
               "its next "
               "try\tnothing: it holds up nothing");
    }
}

} // namespace
} // namespace xpon::test
