// What failed is tried again for as long as it fails, however long that is.
#include <fstream>

#include <sys/mount.h>

#include "faults/board_clock.hpp"
#include "kit/ipc_ready.hpp"
#include "kit/raw_database.hpp"
#include "kit/report.hpp"
#include "xpon/ipc/zmq_ipc.hpp"

namespace xpon::test {
namespace {

class Retries : public BoardClock {
  protected:
    void start_everything() {
        start_tools();
        daemon = start(with_own_clock({XPON_DAEMON}, Jumps::All));
        ASSERT_TRUE(daemon->wait_ready());
        peer = ipc::make_zmq_ipc(ipc::any_address, "PEER");
        ASSERT_TRUE(wait_connected(*peer));
        wait_until_serving();
        // The daemon's own connection comes when it comes.
        ASSERT_TRUE(wait_until([&] {
            wake_daemon();
            return lines_with(woken) > 0;
        }));
    }

    /// Lets the daemon believe that this much time has passed, and look what is due. It does that after it
    /// has told of the event that wakes it.
    void pass(std::chrono::minutes time) {
        passed += time;
        jump(fmt::format("+{}m", passed.count()));
        auto const before = lines_with(woken);
        wake_daemon();
        ASSERT_TRUE(wait_until([&] { return lines_with(woken) > before; }));
    }

    /// The lines with this text that the daemon has logged.
    long lines_with(std::string const& text) const {
        std::istringstream journal{Board::journal({"_PID=" + std::to_string(daemon->process.pid())})};
        long count = 0;
        for (std::string line; std::getline(journal, line);) {
            count += line.find(text) != std::string::npos ? 1 : 0;
        }
        return count;
    }

  private:
    void wake_daemon() const {
        ASSERT_THAT(peer->send({ipc::everybody, ipc::master_change_event, 0}, {}), IsOk());
    }

    static constexpr char const* woken = "Master-change event with mode";
    std::shared_ptr<ipc::IIpc> peer;
    std::chrono::minutes passed{0};
};

TEST_F(Retries, ADiskThatIsFullForTwoDaysCostsNoChange) {
    ASSERT_EQ(mount("disk", zlog_folder, "tmpfs", 0, "size=4m"), 0);
    start_everything();
    auto const filler = std::string{zlog_folder} + "filler";
    fill_disk(filler);
    auto const before = contents(snmp.path);
    set({{"module.snmp.*", "error"}});
    EXPECT_TRUE(wait_until([this] { return lines_with("No space left on device") > 0; }));
    // By then ten tries are over, of which the last came after 1023 s.
    for (int hour = 0; hour < 48; ++hour) {
        pass(std::chrono::hours{1});
    }
    EXPECT_GE(lines_with("No space left on device"), 48);
    EXPECT_EQ(lines_with("config_change of module.snmp"), 1) << "told once, however often it is tried";
    EXPECT_EQ(contents(snmp.path), before);

    std::filesystem::remove(filler);
    pass(std::chrono::minutes{30});
    pass(std::chrono::minutes{0}); // what was due has been tried
    EXPECT_EQ(contents(snmp.path), before) << "once an hour";
    pass(std::chrono::minutes{31});
    expect_in_step();
    EXPECT_TRUE(wait_until([this] { return lines_with("config_change of module.snmp") == 2; }));
    EXPECT_EQ(lines_with(" works again"), 1);
    EXPECT_EQ(stop_daemon(), 0);
    report("disk full for two days\ta small file system is filled, the daemon's clock jumps 48 times by an "
           "hour\tNo space left on device");
}

TEST_F(Retries, ADatabaseMendedAfterTwelveHoursIsFollowedAtTheFirstRing) {
    start_everything();
    RawDatabase raw{std::string{database} + "/running.db"};
    raw.run("ALTER TABLE journal RENAME TO journal_away");
    std::ofstream{std::string{database} + "/running.db.doorbell", std::ios::app}; // as a writer rings
    EXPECT_TRUE(wait_until([this] { return lines_with("Reading the configuration changes failed") == 1; }));
    for (int hour = 0; hour < 12; ++hour) {
        pass(std::chrono::hours{1});
    }
    EXPECT_EQ(lines_with("Reading the configuration changes failed"), 1) << "told once";
    raw.run("ALTER TABLE journal_away RENAME TO journal");
    // It rests for an hour now.
    set(a_change_of_every_output("debug"));
    expect_in_step();
    EXPECT_TRUE(
        wait_until([this] { return lines_with("Reading the configuration changes works again") == 1; }));
    EXPECT_EQ(stop_daemon(), 0);
    report("an unreadable database mended after 12 hours\tits journal is taken away, the daemon's clock "
           "jumps "
           "12 times by an hour, then a change rings\tReading the configuration changes failed");
}

} // namespace
} // namespace xpon::test
