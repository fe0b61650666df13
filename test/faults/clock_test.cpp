// The clock of the board jumps: nothing that waits takes notice.
#include <filesystem>

#include "faults/board_clock.hpp"
#include "kit/report.hpp"

namespace xpon::test {
namespace {

class Clock : public BoardClock {
  protected:
    std::string year() {
        auto const output = scratch / "year";
        std::filesystem::remove(output);
        EXPECT_EQ(ChildProcess({.argv = with_own_clock({"date", "+%Y"}, Jumps::TimeOfDay),
                                .environment = {},
                                .output = output})
                      .wait(),
                  0);
        return contents(output);
    }
};

TEST_F(Clock, JumpsCostNoChangeAndNoTime) {
    auto const now = year();
    start_journald();
    start_syslog_ng();
    broker = start(with_own_clock({XPON_BROKER}, Jumps::TimeOfDay));
    ASSERT_TRUE(broker->wait_ready());
    daemon = start(with_own_clock({XPON_DAEMON}, Jumps::TimeOfDay));
    ASSERT_TRUE(daemon->wait_ready());
    wait_until_serving();
    auto const folder_in_the_way = snmp.path;
    for (auto const* const by : {"+5y", "-20y", "+0"}) {
        // A change fails, and is waiting for its next try when the clock jumps.
        std::filesystem::remove(folder_in_the_way);
        std::filesystem::create_directory(folder_in_the_way);
        set(a_change_of_every_output(*by == '-' ? "error" : "debug"));
        EXPECT_TRUE(holds(printk, Wanted{database}(log_config::kernel_output())));
        jump(by);
        EXPECT_EQ(year() == now, *by == '+' && by[1] == '0');
        std::filesystem::remove(folder_in_the_way);
        expect_in_step();
        wait_until_serving();
    }
    expect_one_life();
    EXPECT_EQ(broker->process.terminate(), 0);
    report("the clock jumps\t5 years ahead, 20 back, to the right time, while a failed change waits for "
           "its next try\tnothing; no output is delayed");
}

} // namespace
} // namespace xpon::test
