// Who may do what, and where the daemon writes.
#include <sys/stat.h>

#include "integration/followed_board.hpp"

namespace xpon::test {
namespace {

using testing::HasSubstr;

class Privileges : public FollowedBoard {
  protected:
    static std::string mode(std::filesystem::path const& path) {
        struct stat status{};
        EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
        return fmt::format("{:o}", status.st_mode & 07777);
    }

    /// Runs a command as a user who belongs to no group of the board's; the exit status.
    std::optional<int> run_as_stranger(std::vector<std::string> command) {
        std::filesystem::remove(output());
        command.insert(command.begin(), {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
        return ChildProcess{{.argv = std::move(command), .environment = {}, .output = output()}}.wait();
    }

    std::filesystem::path output() const { return scratch / "stranger"; }
};

TEST_F(Privileges, FilesAndSocketsHaveTheirModes) {
    start_everything();
    set({{"module.snmp.TRAP", "debug"}});
    expect_in_step();
    EXPECT_EQ(mode(database), "2770");
    for (char const* name : {"running.db", "running.db-wal", "running.db-shm", "running.db.doorbell"}) {
        EXPECT_EQ(mode(std::filesystem::path{database} / name), "660") << name;
    }
    for (char const* name : {"publish", "subscribe"}) {
        EXPECT_EQ(mode(std::filesystem::path{"/run/xpon/ipc"} / name), "660") << name;
    }
    for (auto const& output : log_config::outputs()) {
        EXPECT_TRUE(&output == &log_config::kernel_output() || mode(output.path) == "644") << output.name;
    }
}

TEST_F(Privileges, AStrangerCanNeitherChangeASettingNorReachTheBus) {
    if (run_as_stranger({"true"}) != 0) {
        GTEST_SKIP() << "an ordinary user's sandbox has no other users";
    }
    start_everything();
    std::filesystem::permissions(scratch.path(), std::filesystem::perms{0777});
    auto const before = read_file(snmp.path);
    EXPECT_EQ(run_as_stranger({XPON_LOGCTL, "set", "module.snmp.TRAP=debug"}), 1);
    EXPECT_THAT(read_file(output()), HasSubstr("Permission denied"));
    for (char const* name : {"publish", "subscribe"}) {
        EXPECT_EQ(run_as_stranger(
                      {"socat", "-u", "OPEN:/dev/null", fmt::format("UNIX-CONNECT:/run/xpon/ipc/{}", name)}),
                  1);
        EXPECT_THAT(read_file(output()), HasSubstr("Permission denied"));
    }
    EXPECT_EQ(run_as_stranger({"kill", "-TERM", std::to_string(daemon->process.pid())}), 1);
    EXPECT_EQ(read_file(snmp.path), before);
    wait_until_serving();
}

TEST_F(Privileges, TheDaemonWritesNowhereElse) {
    start_tools();
    // All that it sees is read-only, but for its outputs and the database.
    daemon = start({"unshare", "--mount", "bash", "-c",
                    "for folder in / /etc /usr/sbin /var/lib /var/log /var/lib/syslog-ng /run /tmp /dev; do"
                    "  mount -o remount,bind,ro \"$folder\" || exit;"
                    "done;"
                    "! : >/tmp/x && ! : >/run/x && ! : >/etc/x && exec \"$0\"",
                    XPON_DAEMON});
    ASSERT_TRUE(daemon->wait_ready()) << contents(scratch / "unshare.4.out");
    set(a_change_of_every_output("debug"));
    expect_in_step();
    signal_daemon(SIGHUP);
    ASSERT_TRUE(daemon->wait_ready());
    wait_until_serving();
    expect_in_step();
    EXPECT_TRUE(wait_until_logged(log_file));
    EXPECT_EQ(stop_daemon(), 0);
}

} // namespace
} // namespace xpon::test
