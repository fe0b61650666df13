// Faults of everything that the daemon leans on while it runs. Each row makes one, changes a setting of every
// output, mends it, and expects every output to follow without a restart and without a new change.
#include <array>
#include <fstream>

#include <fcntl.h>
#include <linux/fs.h>
#include <sqlite3.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <zmq.hpp>

#include "integration/followed_board.hpp"
#include "integration/terminal.hpp"
#include "integration/torn_file_reader.hpp"
#include "kit/ipc_ready.hpp"
#include "kit/random.hpp"
#include "kit/report.hpp"
#include "xpon/ipc/file_events.hpp"
#include "xpon/ipc/message.hpp"
#include "xpon/ipc/zmq_ipc.hpp"

namespace xpon::test {
namespace {

class Faults;

/// One fault. `make` and `mend` act on the running board.
struct Fault {
    char const* name; ///< of the test
    char const* what; ///< for the report
    char const* how;  ///< it is made
    /// What the daemon's log has to say meanwhile; null where the fault must not hold up anything: then every
    /// output has to follow before it is mended.
    char const* told;
    void (Faults::*make)();
    void (Faults::*mend)();
};

/// In messages of the test framework.
void PrintTo(Fault const& fault, std::ostream* stream) {
    *stream << fault.what;
}

std::string shown(testing::TestParamInfo<Fault> const& info) {
    return info.param.name;
}

class Faults : public FollowedBoard, public testing::WithParamInterface<Fault> {
  protected:
    Faults() {
        // A disk of its own, so that it can be filled and taken away.
        EXPECT_EQ(mount("disk", zlog_folder, "tmpfs", 0, "size=4m,nr_inodes=60"), 0);
    }

    static void expect_mounted(int result, char const* what) {
        EXPECT_EQ(result, 0) << what << ": " << std::strerror(errno);
    }

    static std::filesystem::path filler(int number) {
        return fmt::format("{}filler.{}", zlog_folder, number);
    }

  public:
    void fill_disk() { Board::fill_disk(filler(0)); }
    void use_up_inodes() {
        for (int number = 0; std::ofstream{filler(number)}; ++number) {
        }
    }
    void remove_fillers() {
        for (int number = 0; std::filesystem::remove(filler(number)); ++number) {
        }
    }

    void make_disk_read_only() {
        // Busy for as long as a file is being written there.
        int result = 0;
        wait_until([&] {
            result = mount(nullptr, zlog_folder, nullptr, MS_REMOUNT | MS_RDONLY, nullptr);
            return result == 0 || errno != EBUSY;
        });
        expect_mounted(result, "read-only");
    }
    void make_disk_writable() {
        expect_mounted(mount(nullptr, zlog_folder, nullptr, MS_REMOUNT, nullptr), "writable");
    }

    void make_folder_immutable() { make_immutable(zlog_folder, true); }
    void make_folder_mutable() { make_immutable(zlog_folder, false); }
    void make_file_immutable() { make_immutable(snmp.path, true); }
    void make_file_mutable() { make_immutable(snmp.path, false); }

    void slow_disk_down() { tamper_with("fdatasync", "delay_exit=100000"); }
    void let_disk_fail() { tamper_with("fdatasync", "error=EIO"); }
    void let_fork_fail() { tamper_with("clone,clone3,fork,vfork", "error=EAGAIN"); }
    void leave_system_calls_alone() {
        // At SIGTERM it may wait for the next system call first. Without it the daemon goes on.
        tracer->kill();
    }

    void put_folder_in_place() {
        taken_away = snmp.name;
        std::filesystem::remove(snmp.path);
        std::filesystem::create_directory(snmp.path);
    }
    void remove_folder() { std::filesystem::remove(snmp.path); }

    void put_link_in_place() {
        taken_away = snmp.name;
        write_file(scratch / "elsewhere", "not to be written\n");
        std::filesystem::remove(snmp.path);
        std::filesystem::create_symlink(scratch / "elsewhere", snmp.path);
    }
    void check_what_the_link_named() { EXPECT_EQ(read_file(scratch / "elsewhere"), "not to be written\n"); }

    void remove_reload_program() { take_reload_program_away(); }
    void let_reload_fail() { replace_reload_program("exit 1"); }
    void let_reload_be_killed() { replace_reload_program("kill -9 $$"); }
    void let_reload_hang() { replace_reload_program("exec sleep infinity"); }
    void slow_reload_down() {
        replace_reload_program(fmt::format("sleep 0.3; exec {} \"$@\"", reload_program_aside));
    }
    void put_reload_program_back() { FollowedBoard::put_reload_program_back(); }

    void take_bash_away() {
        expect_mounted(mount("/dev/null", "/usr/bin/bash", nullptr, MS_BIND, nullptr), "bash");
    }
    void put_bash_back() { expect_mounted(umount2("/usr/bin/bash", MNT_DETACH), "bash"); }

    void take_descriptors_away() {
        if (sanitized) {
            impossible = "a sanitizer needs descriptors for its own checks";
            return;
        }
        // Those that are open stay usable.
        set_limit(RLIMIT_NOFILE, lowest_free_descriptor());
    }
    void give_descriptors_back() { set_limit(RLIMIT_NOFILE, 1024); }

    void take_memory_away() {
        if (sanitized) {
            impossible = "a sanitizer needs memory for its own checks";
            return;
        }
        // Enough for what is small, not for the text of a large file. A limit of all memory (RLIMIT_AS) would
        // leave the allocator the addresses that it has reserved for each thread.
        set_limit(RLIMIT_DATA, static_cast<rlim_t>(kilobytes("VmData:") + 300) * 1024);
    }
    void give_memory_back() { set_limit(RLIMIT_DATA, RLIM_INFINITY); }

    void stop_syslog_ng() { syslog_ng->kill(); }
    void start_syslog_ng_again() { start_syslog_ng(); }

    void freeze_broker() { broker->process.kill(SIGSTOP); }
    void thaw_broker() { broker->process.kill(SIGCONT); }
    void kill_broker() { broker->kill(); }
    void start_broker_again() { start_broker(); }

    void flood_bus() {
        auto const peer = ipc::make_zmq_ipc(ipc::any_address, "FLOOD");
        ASSERT_TRUE(wait_connected(*peer));
        flood = std::jthread{[peer](std::stop_token const& end) {
            std::vector<std::byte> const payload(1000);
            while (!end.stop_requested()) {
                std::ignore = peer->send({ipc::everybody, ipc::master_change_event, 0}, payload);
                std::ignore = peer->send({ipc::everybody, 1, 0}, payload);
            }
        }};
    }
    void end_flood() { flood = {}; }

    void send_malformed_frames() {
        auto const listener = ipc::make_zmq_ipc(ipc::any_address, "LISTENER");
        ASSERT_TRUE(wait_connected(*listener));
        flood = std::jthread{[](std::stop_token const& end) {
            zmq::context_t context;
            zmq::socket_t peer{context, zmq::socket_type::pub};
            peer.set(zmq::sockopt::linger, 0);
            peer.connect("ipc:///run/xpon/ipc/publish");
            // For everybody: nothing else, half a header, a master change with a payload, a notification with
            // half of one and with a long one, two frames in one message.
            std::string const everybody{"\xFE\xFF\0\0", 4};
            auto const master_change = header(ipc::master_change_event);
            auto const notification = header(ipc::file_changed_event);
            while (!end.stop_requested()) {
                for (auto const& frame :
                     {everybody, everybody + "\xD4", master_change + "x", notification + std::string(2, 'x'),
                      notification + std::string(60000, 'x'), std::string{"\xFE"}, std::string{}}) {
                    peer.send(zmq::buffer(frame), zmq::send_flags::dontwait);
                }
                peer.send(zmq::buffer(notification), zmq::send_flags::sndmore);
                peer.send(zmq::buffer(notification), zmq::send_flags::dontwait);
            }
        }};
        ASSERT_TRUE(wait_event(*listener, ipc::file_changed_event)) << "none comes through";
    }

    void freeze_daemon() { daemon->process.kill(SIGSTOP); }
    void thaw_daemon() { daemon->process.kill(SIGCONT); }

    void hold_write_lock() {
        ASSERT_EQ(sqlite3_open(database_file().c_str(), &writer), SQLITE_OK);
        ASSERT_EQ(sqlite3_exec(writer, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
        writer_ends = std::jthread{[this] {
            // Within the 5 s for which a writer waits for another.
            std::this_thread::sleep_for(std::chrono::seconds{1});
            sqlite3_exec(writer, "ROLLBACK", nullptr, nullptr, nullptr);
        }};
    }
    void close_writer() {
        writer_ends = {};
        sqlite3_close(writer);
    }

    void unmount_terminals() {
        // sshd and script would miss them; the daemon only stops hearing of new ones.
        ASSERT_EQ(umount2("/dev/pts", MNT_DETACH), 0);
    }
    void open_and_close_terminals() {
        terminals = std::jthread{[](std::stop_token const& end) {
            while (!end.stop_requested()) {
                open_and_close_terminal();
            }
        }};
    }
    void leave_terminals_alone() {
        terminals = {};
        // A terminal that vanished while it was looked at keeps its output until the next event.
        EXPECT_TRUE(wait_until([] {
            open_and_close_terminal();
            return contents(syslog_ng_conf).find("destination(d_rsh_") == std::string::npos;
        }));
    }

    void nothing() {}

  protected:
    /// Changes a setting of every output under the fault, then mends it. Every output must follow, as it must
    /// a further change.
    void undergo(Fault const& fault, std::string const& level) {
        impossible.clear();
        (this->*fault.make)();
        if (!impossible.empty()) {
            return;
        }
        TornFileReader reader{taken_away};
        auto const told = fault.told != nullptr ? log_lines_with(fault.told) : 0;
        set(a_change_of_every_output(level));
        if (fault.told != nullptr) {
            // A command that hangs is killed after 30 s.
            EXPECT_TRUE(wait_until([&] { return log_lines_with(fault.told) > told || *fault.told == '\0'; },
                                   std::chrono::seconds{60}))
                << "not told: " << fault.told;
        } else {
            expect_in_step();
        }
        (this->*fault.mend)();
        expect_in_step();
        set(a_change_of_every_output("notice"));
        expect_in_step();
        reader.stop();
        EXPECT_THAT(reader.torn, testing::IsEmpty()) << "of " << reader.files_read << " files read";
        files_read += reader.files_read;
        taken_away = {};
    }

    static std::size_t log_lines_with(std::string_view text) {
        std::ifstream log{log_file};
        std::size_t count = 0;
        for (std::string line; std::getline(log, line);) {
            count += line.find(text) != std::string::npos ? 1 : 0;
        }
        return count;
    }

    static std::string database_file() { return std::string{database} + "/running.db"; }

    static void open_and_close_terminal() {
        // syslog-ng lets go of them later; one numbered 16 would stop the daemon.
        EXPECT_TRUE(wait_until([] { return count_entries("/dev/pts") < 10; }));
        Terminal terminal;
        terminal.hang_up();
    }

    rlim_t lowest_free_descriptor() const {
        rlim_t number = 0;
        while (std::filesystem::is_symlink(proc() / "fd" / std::to_string(number))) {
            ++number;
        }
        return number;
    }

    void set_limit(__rlimit_resource resource, rlim_t soft) const {
        rlimit limit{};
        ASSERT_EQ(prlimit(daemon->process.pid(), resource, nullptr, &limit), 0);
        limit.rlim_cur = std::min(soft, limit.rlim_max);
        ASSERT_EQ(prlimit(daemon->process.pid(), resource, &limit, nullptr), 0);
    }

    void make_immutable(std::filesystem::path const& path, bool on) {
        core::UniqueFd const opened{open(path.c_str(), O_RDONLY | O_CLOEXEC)};
        int flags = 0;
        int result = ioctl(opened.get(), FS_IOC_GETFLAGS, &flags);
        if (result == 0) {
            flags = on ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
            result = ioctl(opened.get(), FS_IOC_SETFLAGS, &flags);
        }
        if (result != 0 && on) {
            impossible =
                fmt::format("{} cannot be made immutable here: {}", path.string(), std::strerror(errno));
            return;
        }
        EXPECT_EQ(result, 0) << path << ": " << std::strerror(errno);
    }

    void tamper_with(std::string const& calls, std::string const& how) {
        tracer = FollowedBoard::tamper_with(daemon->process.pid(), calls, how);
    }

    static std::string header(std::uint16_t event) {
        auto const bytes = ipc::encode({ipc::everybody, event, 0}, {});
        return {reinterpret_cast<char const*>(bytes.data()), bytes.size()};
    }

    long files_read = 0;
    std::string impossible; // why the fault cannot be made here
    std::unique_ptr<Program> tracer;
    std::string_view taken_away; // a file that the test itself makes unreadable
    std::jthread flood;
    std::jthread terminals;
    std::jthread writer_ends;
    sqlite3* writer = nullptr;
};

TEST_P(Faults, CostNoChange) {
    auto const& fault = GetParam();
    start_serving();
    undergo(fault, "debug");
    if (!impossible.empty()) {
        GTEST_SKIP() << impossible;
    }
    expect_one_life();
    report(fmt::format("{}\t{}\t{}", fault.what, fault.how,
                       fault.told != nullptr ? fault.told : "nothing; no output is delayed"));
}

// clang-format off
constexpr std::array faults{
    Fault{"FullDisk", "full disk", "a small file system is filled",
          "No space left on device", &Faults::fill_disk, &Faults::remove_fillers},
    Fault{"NoInodes", "no inodes left", "a small file system is filled with empty files",
          "No space left on device", &Faults::use_up_inodes, &Faults::remove_fillers},
    Fault{"ReadOnlyDisk", "read-only file system", "it is mounted anew",
          "Read-only file system", &Faults::make_disk_read_only, &Faults::make_disk_writable},
    Fault{"ImmutableFolder", "folder immutable", "chattr +i",
          "Operation not permitted", &Faults::make_folder_immutable, &Faults::make_folder_mutable},
    Fault{"ImmutableFile", "file immutable", "chattr +i",
          "Operation not permitted", &Faults::make_file_immutable, &Faults::make_file_mutable},
    Fault{"SlowDisk", "slow disk", "strace makes each fdatasync take 0.1 s",
          nullptr, &Faults::slow_disk_down, &Faults::leave_system_calls_alone},
    Fault{"FailingDisk", "failing disk", "strace makes each fdatasync fail",
          "Input/output error", &Faults::let_disk_fail, &Faults::leave_system_calls_alone},
    Fault{"FolderInPlace", "a folder in the place of a file", "the file is replaced",
          "Is a directory", &Faults::put_folder_in_place, &Faults::remove_folder},
    Fault{"LinkInPlace", "a symbolic link in the place of a file", "the file is replaced",
          nullptr, &Faults::put_link_in_place, &Faults::check_what_the_link_named},

    Fault{"NoReloadProgram", "syslog-ng-ctl missing", "it is moved aside",
          "Failed reload syslog", &Faults::remove_reload_program, &Faults::put_reload_program_back},
    Fault{"FailingReload", "syslog-ng-ctl failing", "a script that exits 1 in its place",
          "Failed reload syslog", &Faults::let_reload_fail, &Faults::put_reload_program_back},
    Fault{"KilledReload", "syslog-ng-ctl killed by a signal", "a script that kills itself in its place",
          "Failed reload syslog", &Faults::let_reload_be_killed, &Faults::put_reload_program_back},
    Fault{"SlowReload", "syslog-ng-ctl slow", "a script that waits 0.3 s in its place",
          nullptr, &Faults::slow_reload_down, &Faults::put_reload_program_back},
    Fault{"NoSyslogNg", "syslog-ng killed", "SIGKILL; started again later",
          nullptr, &Faults::stop_syslog_ng, &Faults::start_syslog_ng_again},
    Fault{"NoBash", "bash missing", "something else is mounted over it",
          "Failed reload syslog", &Faults::take_bash_away, &Faults::put_bash_back},
    Fault{"NoDescriptors", "no descriptors left", "RLIMIT_NOFILE is lowered to those in use",
          "Too many open files", &Faults::take_descriptors_away, &Faults::give_descriptors_back},

    Fault{"NoProcesses", "no process can be started", "strace makes each fork fail",
          "Failed reload syslog", &Faults::let_fork_fail, &Faults::leave_system_calls_alone},
    Fault{"NoMemory", "no memory left", "RLIMIT_DATA is lowered to 300 kB above what is in use",
          "std::bad_alloc", &Faults::take_memory_away, &Faults::give_memory_back},

    Fault{"FrozenBroker", "message broker frozen", "SIGSTOP",
          nullptr, &Faults::freeze_broker, &Faults::thaw_broker},
    Fault{"NoBroker", "message broker killed", "SIGKILL; started again later",
          nullptr, &Faults::kill_broker, &Faults::start_broker_again},
    Fault{"FloodedBus", "bus flooded", "a peer sends master changes and rubbish as fast as it can",
          nullptr, &Faults::flood_bus, &Faults::end_flood},

    Fault{"MalformedFrames", "malformed messages on the bus", "a peer sends them as fast as it can",
          nullptr, &Faults::send_malformed_frames, &Faults::end_flood},

    Fault{"LockedDatabase", "database locked by a stuck writer", "a transaction is held for 1 s",
          nullptr, &Faults::hold_write_lock, &Faults::close_writer},

    Fault{"NoTerminals", "/dev/pts unmounted", "lazily",
          nullptr, &Faults::unmount_terminals, &Faults::nothing},
    Fault{"TerminalStorm", "terminals opening and closing", "without pause",
          "", &Faults::open_and_close_terminals, &Faults::leave_terminals_alone},
    Fault{"FrozenDaemon", "the daemon itself frozen", "SIGSTOP, SIGCONT",
          "", &Faults::freeze_daemon, &Faults::thaw_daemon},
};

/// A soak has no time for these.
constexpr std::array slow_faults{
    Fault{"HangingReload", "syslog-ng-ctl hanging", "a script that never ends in its place; killed after 30 s",
          "Failed reload syslog", &Faults::let_reload_hang, &Faults::put_reload_program_back},
};
// clang-format on

TEST_F(Faults, ADatabaseThatIsAwayForAMomentCostsNoChange) {
    start_serving();
    daemon->process.kill(SIGSTOP);
    set(a_change_of_every_output("debug"));
    std::filesystem::rename(database_file(), database_file() + ".away");
    daemon->process.kill(SIGCONT);
    EXPECT_TRUE(wait_for_text(log_file, "running.db: cannot be opened (No such file or directory)"));
    std::filesystem::rename(database_file() + ".away", database_file());
    expect_in_step();
    report("database file moved away\trenamed, and back\tcannot be opened (No such file or directory)");
}

TEST_F(Faults, ABrokerMissingAtTheStartDelaysNothingAndIsFoundLater) {
    start_journald();
    start_syslog_ng();
    start_daemon();
    wait_until_serving();
    set(a_change_of_every_output("debug"));
    expect_in_step();
    start_broker();
    auto const module = ipc::make_zmq_ipc(ipc::any_address, "MODULE");
    ASSERT_TRUE(wait_connected(*module));
    EXPECT_TRUE(wait_event(*module, ipc::file_changed_event)) << "what was changed before is not told";
    EXPECT_EQ(stop_daemon(), 0);
    report("no message broker at the start\tit is started later\tnothing; no output is delayed");
}

/// For XPON_SOAK_SECONDS one board lives through random faults, restarts by SIGHUP and changes of every kind.
TEST_F(Faults, OneAfterTheOtherLeaveNothingBehind) {
    using Clock = std::chrono::steady_clock;
    auto random = seeded();
    start_serving();
    auto const begin = Clock::now();
    auto const end = begin + std::chrono::seconds{number_from_environment("XPON_SOAK_SECONDS", 8)};
    auto const descriptors_before = descriptors();
    auto const threads_before = threads();
    std::vector<long> memory; // in kB, after each fault
    int undergone = 0;
    int hang_ups = 0;
    while (Clock::now() < end && !HasFailure()) {
        auto const& fault = faults.at(below(random, faults.size()));
        // Without /dev/pts no terminal can be opened any more. A daemon that has lived for a while may have
        // freed enough to do without more memory; where it does, the allocator keeps large texts among the
        // small ones.
        if (fault.make == &Faults::unmount_terminals || fault.make == &Faults::take_memory_away) {
            continue;
        }
        SCOPED_TRACE(fmt::format(
            "{} s: {}", std::chrono::round<std::chrono::seconds>(Clock::now() - begin).count(), fault.name));
        undergo(fault, below(random, 2) == 0 ? "debug" : "error");
        if (!impossible.empty()) {
            continue;
        }
        ++undergone;
        // A terminal's event that comes late, during the next fault, would end the following of terminals for
        // good.
        if (fault.make == &Faults::open_and_close_terminals || below(random, 4) == 0) {
            signal_daemon(SIGHUP);
            ASSERT_TRUE(daemon->wait_ready());
            wait_until_serving();
            ++hang_ups;
        }
        memory.push_back(own_kilobytes());
    }
    ASSERT_GE(memory.size(), 1U);
    // The most of a quarter of the time: a new event thread may get a heap of its own from the allocator.
    auto const most_memory = [&](std::size_t quarter) {
        auto const from = memory.size() * quarter / 4;
        auto const to = std::max(memory.size() * (quarter + 1) / 4, from + 1);
        long most = 0;
        for (auto index = from; index < to; ++index) {
            most = std::max(most, memory.at(index));
        }
        return most;
    };
    // A command that runs just then, or the bus being reached again, takes some for a moment.
    EXPECT_TRUE(wait_until([&] { return descriptors() <= descriptors_before; }));
    EXPECT_TRUE(wait_until([&] { return threads() <= threads_before; }));
    auto const figures = fmt::format("{} faults and {} SIGHUPs in {} s; {} files read, none torn; own memory "
                                     "at most {} kB in the second quarter, {} kB in "
                                     "the last; descriptors {} and {}, threads {} and {}",
                                     undergone, hang_ups,
                                     std::chrono::round<std::chrono::seconds>(Clock::now() - begin).count(),
                                     files_read, most_memory(1), most_memory(3), descriptors_before,
                                     descriptors(), threads_before, threads());
    fmt::print("{}\n", figures);
    if (!sanitized && memory.size() >= 100) {
        EXPECT_LT(most_memory(3), most_memory(1) + 2048);
    }
    EXPECT_EQ(stop_daemon(), 0);
    report("soak\trandom faults and restarts one after the other\t" + figures);
}

INSTANTIATE_TEST_SUITE_P(, Faults, testing::ValuesIn(faults), shown);
INSTANTIATE_TEST_SUITE_P(Slow, Faults, testing::ValuesIn(slow_faults), shown);

} // namespace
} // namespace xpon::test
