// Measures the daemon and its parts on a sandboxed board (scripts/sandbox --root on a real disk). Each task
// is compared with a floor, the least code with the same result; the two alternate within one run. Prints a
// line for each task, separated by tabs: task, median of ours, median of the floor (both in microseconds),
// their ratio, the goal, 99th percentile of ours. --samples FILE writes every single time of the change and
// the start to FILE, for the plots.
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <system_error>

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <spawn.h>
#include <sqlite3.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "kit/child_process.hpp"
#include "kit/fake_ipc.hpp"
#include "kit/fake_logger.hpp"
#include "kit/fake_system_wrapper.hpp"
#include "kit/process_status.hpp"
#include "kit/scratch_folder.hpp"
#include "xpon/cfgdb/transaction.hpp"
#include "xpon/config_writer/config_writer.hpp"
#include "xpon/log_config/kernel/kernel_configurator.hpp"
#include "xpon/log_config/rsh/i_remote_shell_logger.hpp"
#include "xpon/log_config/service/log_config_service.hpp"
#include "xpon/log_config/syslog_ng/syslog_configurator.hpp"
#include "xpon/log_config/zlog_files/config_files.hpp"
#include "xpon/log_config/zlog_files/generate_zlog_config_files.hpp"
#include "xpon/system_wrapper/system_wrapper.hpp"

namespace xpon::bench {
namespace {

using core::UniqueFd;
using test::ChildProcess;
using test::read_file;

using Clock = std::chrono::steady_clock;
using Micro = std::chrono::duration<double, std::micro>;
using Times = std::vector<double>; // in microseconds

constexpr std::string_view zlog_folder = log_config::zlog_folder;

void require(bool holds, char const* what) {
    if (!holds) {
        throw std::system_error{errno, std::generic_category(), what};
    }
}

template <class Work>
double time_of(Work const& work) {
    auto const start = Clock::now();
    work();
    return Micro{Clock::now() - start}.count();
}

double at_share(Times times, double share) {
    std::ranges::sort(times);
    return times.at(
        std::min(times.size() - 1, static_cast<std::size_t>(share * static_cast<double>(times.size()))));
}

void print_row(std::string_view work, Times const& ours, Times const& floor, std::string_view goal) {
    auto const our_median = at_share(ours, 0.5);
    auto const floor_median = at_share(floor, 0.5);
    fmt::print("{}\t{:.0f}\t{:.0f}\t{:.2f}\t{}\t{:.0f}\n", work, our_median, floor_median,
               our_median / floor_median, goal, at_share(ours, 0.99));
    std::fflush(stdout);
}

void print_figure(std::string_view what, long kilobytes, std::string_view goal) {
    fmt::print("{}\t{} kB\t\t\t{}\t\n", what, kilobytes, goal);
    std::fflush(stdout);
}

/// What a process has handed to write(2) and its like since it began, in bytes.
long bytes_written(pid_t process) {
    auto const text = read_file(fmt::format("/proc/{}/io", process));
    return std::stol(text.substr(text.find("wchar: ") + 7));
}

/// A sum over the process's memory, in kB: "Pss:" shares each page among the processes that have it mapped.
long summed_memory(pid_t process, std::string_view label) {
    auto const text = read_file(fmt::format("/proc/{}/smaps_rollup", process));
    return std::stol(text.substr(text.find(label) + label.size()));
}

/// The least code that leaves either the old file or the new one, even after a power cut.
void replace_file(std::string const& path, std::string const& text) {
    auto const temporary = path + ".new";
    UniqueFd const file{open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)};
    require(write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()), "write");
    require(fdatasync(file.get()) == 0, "fdatasync");
    require(std::rename(temporary.c_str(), path.c_str()) == 0, "rename");
}

void set(std::string_view path, std::string_view value,
         std::filesystem::path const& folder = cfgdb::default_folder) {
    cfgdb::Transaction transaction;
    if (!transaction.set(path, value).has_value() || !transaction.commit(folder).has_value()) {
        throw std::runtime_error{fmt::format("cannot set {}", path)};
    }
}

char const* other_level(int round) {
    return round % 2 == 0 ? "debug" : "info";
}

class NoTerminals : public log_config::IRemoteShellLogger {
  public:
    core::Result<void> set_update_config_cb(log_config::UpdateConfigCb&& /*callback*/) override {
        return core::success();
    }
};

/// Measures from config_change to the file replaced and the notification sent, with every level of the FSM
/// module at debug: for a module that shares the FSM module's file, and for the FSM module itself.
void change_in_the_largest_file() {
    set("module.fsm_pon.*", "debug");
    auto const logger = std::make_shared<test::FakeLogger>(core::LogLevel::Fatal);
    auto const bus = std::make_shared<test::FakeIpc>();
    auto const system = std::make_shared<test::FakeSystemWrapper>();
    auto const cfgdb = std::make_shared<cfgdb::CfgDbWrapper>("BENCH");
    auto files = log_config::generate_zlog_config_files(cfgdb, bus, logger);
    log_config::LogConfigService service{
        logger,
        cfgdb,
        std::make_unique<log_config::KernelConfigurator>(system),
        std::make_unique<log_config::SyslogConfigurator>(
            system, std::make_unique<config_writer::ConfigWriter>("/etc/syslog-ng/syslog-ng.conf")),
        std::make_unique<NoTerminals>(),
        std::move(files).value(),
        service::ServiceMode{1}};
    auto const dna = std::string{zlog_folder} + "DNA.conf";
    auto const text = read_file(dna);
    struct Row {
        char const* work;
        char const* setting;
        std::uint32_t field;
        char const* goal;
    };
    for (auto const& [work, setting, field, goal] :
         {Row{"change of a module in DNA.conf, FSM all debug; floor: writing the file", "module.igmp.SELF",
              61, "1.3"},
          Row{"change of one ONT, FSM all debug; floor: writing the file", "module.fsm_pon.ont.3.17", 60,
              "report"}}) {
        Times ours;
        Times floor;
        for (int round = 0; round < 50; ++round) {
            set(setting, other_level(round + 1));
            ours.push_back(time_of([&] {
                if (!service.config_change({}, {{field, 0, 0}}).has_value()) {
                    throw std::runtime_error{"the change failed"};
                }
            }));
            floor.push_back(time_of([&] { replace_file(std::string{zlog_folder} + "floor", text); }));
        }
        print_row(work, ours, floor, goal);
    }
    std::filesystem::remove(std::string{zlog_folder} + "floor");
    set("module.*", "notice");
}

/// Measures a commit into a database that `sql` has filled. The floor is a commit into a new database.
void commit_after(char const* sql, std::string_view task, std::string_view goal) {
    std::filesystem::path const long_database = "/var/lib/xpon/long";
    std::filesystem::path const new_database = "/var/lib/xpon/new";
    for (auto const& folder : {long_database, new_database}) {
        std::filesystem::remove_all(folder);
        set("module.snmp.TRAP", "error", folder);
    }
    sqlite3* handle = nullptr;
    require(sqlite3_open((long_database / "running.db").c_str(), &handle) == SQLITE_OK &&
                sqlite3_exec(handle, sql, nullptr, nullptr, nullptr) == SQLITE_OK &&
                sqlite3_close(handle) == SQLITE_OK,
            "a long journal or history");
    cfgdb::CfgDbWrapper const long_held_open{"LONG", long_database}; // as the daemon holds its own
    cfgdb::CfgDbWrapper const new_held_open{"NEW", new_database};
    Times ours;
    Times floor;
    for (int round = 0; round < 300; ++round) {
        ours.push_back(time_of([&] { set("module.snmp.TRAP", other_level(round), long_database); }));
        floor.push_back(time_of([&] { set("module.snmp.TRAP", other_level(round), new_database); }));
    }
    print_row(task, ours, floor, goal);
}

/// Both hold more than a database keeps, so that each commit also drops some.
void commits() {
    commit_after("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 1000000) "
                 "INSERT INTO journal(field_id, at) SELECT 69, 0 FROM n; PRAGMA wal_checkpoint(TRUNCATE)",
                 "commit, 1 000 000 journal entries; floor: a new database", "1.5");
    commit_after("WITH RECURSIVE t(i) AS (SELECT 2 UNION ALL SELECT i + 1 FROM t WHERE i < 1001), "
                 "r(k) AS (SELECT 1 UNION ALL SELECT k + 1 FROM r WHERE k < 4096) "
                 "INSERT INTO history(number, at, author, path, old, new) "
                 "SELECT i, 0, 'bench', 'module.snmp.TRAP', 'error', 'debug' FROM t, r; "
                 "PRAGMA wal_checkpoint(TRUNCATE)",
                 "commit, 1000 transactions of 4096 changes; floor: a new database", "1.1");
}

void shell_command() {
    system_wrapper::SystemWrapper system;
    Times ours;
    Times floor;
    for (int round = 0; round < 300; ++round) {
        ours.push_back(time_of([&] { std::ignore = system.execute("exit 0"); }));
        floor.push_back(time_of([] {
            std::array<char*, 4> argv{const_cast<char*>("bash"), const_cast<char*>("-c"),
                                      const_cast<char*>("exit 0"), nullptr};
            pid_t child = -1;
            require(posix_spawn(&child, "/bin/bash", nullptr, nullptr, argv.data(), environ) == 0,
                    "posix_spawn");
            require(waitpid(child, nullptr, 0) == child, "waitpid");
        }));
    }
    print_row("shell command; floor: posix_spawn of bash", ours, floor, "1.1");
}

/// Plays the service manager: waits for notifications and returns the time of their arrival.
class Manager {
  public:
    explicit Manager(std::filesystem::path const& path)
      : where{path} {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::ranges::copy(where.native(), address.sun_path);
        require(bind(socket.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0, "bind");
    }
    ~Manager() { unlink(where.c_str()); }
    Manager(Manager const&) = delete;
    Manager& operator=(Manager const&) = delete;

    Clock::time_point wait_for(std::string_view text) {
        for (std::array<char, 512> buffer{};;) {
            pollfd wanted{socket.get(), POLLIN, 0};
            require(poll(&wanted, 1, 20000) == 1, "no word from the daemon");
            auto const now = Clock::now();
            auto const size = recv(socket.get(), buffer.data(), buffer.size(), 0);
            if (std::string_view{buffer.data(), static_cast<std::size_t>(size)}.find(text) !=
                std::string_view::npos) {
                return now;
            }
        }
    }

    std::string environment() const { return "NOTIFY_SOCKET=" + where.string(); }

  private:
    std::filesystem::path where;
    UniqueFd socket{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

/// Waits for files to be replaced in a folder.
class Replacements {
  public:
    explicit Replacements(std::string_view folder) {
        require(inotify_add_watch(inotify.get(), std::string{folder}.c_str(), IN_MOVED_TO) >= 0, "inotify");
    }

    Clock::time_point wait_for(std::string_view name) {
        for (;;) {
            pollfd wanted{inotify.get(), POLLIN, 0};
            require(poll(&wanted, 1, 20000) == 1, "a file is not replaced");
            auto const now = Clock::now();
            alignas(inotify_event) std::array<char, 8192> buffer;
            auto const size = read(inotify.get(), buffer.data(), buffer.size());
            for (ssize_t at = 0; at < size;) {
                auto const* const event = reinterpret_cast<inotify_event const*>(buffer.data() + at);
                if (event->len > 0 && event->name == name) {
                    return now;
                }
                at += static_cast<ssize_t>(sizeof *event + event->len);
            }
        }
    }

  private:
    UniqueFd inotify{inotify_init1(IN_CLOEXEC)};
};

/// The time from exec to READY=1 and what the daemon wrote until then.
struct Start {
    double time;
    long written;
};

/// Starts the daemon until `started` has returned, and stops it.
template <class Started>
Start start_daemon(Started const& started) {
    Manager manager{"/tmp/manager"};
    auto const begin = Clock::now();
    ChildProcess daemon{
        {.argv = {XPON_DAEMON}, .environment = {manager.environment()}, .output = "/tmp/daemon"}};
    started(manager, begin);
    auto const ready = manager.wait_for("READY=1");
    auto const written = bytes_written(daemon.pid());
    require(daemon.terminate() == 0, "the daemon failed");
    return {Micro{ready - begin}.count(), written};
}

/// The first start on a board creates the database and writes every file; later ones find nothing changed.
void start(std::ofstream& samples) {
    std::vector<std::string> texts;
    Times first;
    Times later;
    Times floor;
    Start last_first{};
    Start last_later{};
    for (int round = 0; round < 20; ++round) {
        for (auto const& file : log_config::zlog_files) {
            std::filesystem::remove(std::string{zlog_folder} + std::string{file.name});
        }
        std::filesystem::remove_all(cfgdb::default_folder);
        Replacements replacements{zlog_folder};
        Micro started{};
        Micro first_file{};
        Micro last_file{};
        last_first = start_daemon([&](Manager& manager, Clock::time_point begin) {
            started = manager.wait_for("STATUS=Startup") - begin;
            first_file = replacements.wait_for(log_config::zlog_files.front().name) - begin;
            last_file = replacements.wait_for(log_config::zlog_files.back().name) - begin;
        });
        samples << fmt::format("start\t{:.0f}\t{:.0f}\t{:.0f}\t{:.0f}\n", started.count(),
                               (first_file - started).count(), (last_file - first_file).count(),
                               last_first.time - last_file.count());
        first.push_back(last_first.time);
        last_later = start_daemon([](Manager& /*manager*/, Clock::time_point /*begin*/) {});
        later.push_back(last_later.time);
        if (texts.empty()) {
            for (auto const& file : log_config::zlog_files) {
                texts.push_back(read_file(std::string{zlog_folder} + std::string{file.name}));
            }
        }
        floor.push_back(time_of([&] {
            ChildProcess{{.argv = {XPON_EMPTY}, .environment = {}, .output = "/tmp/empty"}}.wait();
            for (auto const& text : texts) {
                replace_file(std::string{zlog_folder} + "floor", text);
            }
        }));
    }
    std::filesystem::remove(std::string{zlog_folder} + "floor");
    print_row("first start, exec to READY=1; floor: empty program, writing the files", first, floor, "1.3");
    print_row("start with nothing changed; floor: as for the first start", later, floor, "0.5");
    print_figure("bytes written by a first start", last_first.written / 1000, "report");
    print_figure("bytes written by a start with nothing changed", last_later.written / 1000, "40 kB");
}

void change_and_memory(std::ofstream& samples) {
    Manager manager{"/tmp/manager"};
    ChildProcess daemon{
        {.argv = {XPON_DAEMON}, .environment = {manager.environment()}, .output = "/tmp/daemon"}};
    manager.wait_for("READY=1");
    Replacements replacements{zlog_folder};
    set("module.snmp.TRAP", "error");
    replacements.wait_for("SNMP.conf"); // from now on it serves
    auto const text = read_file(std::string{zlog_folder} + "SNMP.conf");
    std::filesystem::path const floor_database = "/var/lib/xpon/floor";
    cfgdb::CfgDbWrapper const held_open{"FLOOR", floor_database}; // as the daemon holds its own
    Times ours;
    Times floor;
    for (int round = 0; round < 300; ++round) {
        ours.push_back(time_of([&] {
            set("module.snmp.TRAP", other_level(round));
            replacements.wait_for("SNMP.conf");
        }));
        samples << fmt::format("change\t{:.0f}\n", ours.back());
        floor.push_back(time_of([&] {
            set("module.snmp.TRAP", other_level(round), floor_database);
            replace_file("/etc/zlog_modules_config/floor", text);
        }));
    }
    std::filesystem::remove("/etc/zlog_modules_config/floor");
    print_row("commit to file replaced; floor: without the daemon", ours, floor, "2");

    Replacements syslog_ng{"/etc/syslog-ng"};
    auto const written_by = [&](auto const& change, std::string_view file) {
        auto const before = bytes_written(daemon.pid());
        change();
        (file == "syslog-ng.conf" ? syslog_ng : replacements).wait_for(file);
        return (bytes_written(daemon.pid()) - before) / 1000;
    };
    print_figure("bytes written for one level of a module",
                 written_by([] { set("module.snmp.TRAP", "error"); }, "SNMP.conf"), "report");
    print_figure("bytes written for one receiver",
                 written_by([] { set("syslog.remote.1.address", "192.0.2.7"); }, "syslog-ng.conf"), "report");
    print_figure("bytes written for one ONT, all others at their default",
                 written_by([] { set("module.fsm_pon.ont.3.17", "debug"); }, "DNA.conf"), "report");
    print_figure("bytes written for every level of every module",
                 written_by(
                     [] {
                         set("module.*", "debug");
                         set("module.snmp.TRAP", "error"); // is followed once everything else is done
                     },
                     "SNMP.conf"),
                 "report");
    while (read_file(std::string{zlog_folder} + "SNMP.conf").find("SNMP_TRAP.=WARN") != std::string::npos) {
        replacements.wait_for("SNMP.conf");
    }
    auto const before = test::kilobytes(daemon.pid(), "VmRSS:");
    print_figure("resident memory, every level debug", before, "14 MB");
    print_figure("proportional memory, every level debug", summed_memory(daemon.pid(), "Pss:"), "report");
    print_figure("private memory, every level debug", summed_memory(daemon.pid(), "Private_Dirty:"),
                 "report");
    for (int change = 0; change < 10000; ++change) {
        set("module.snmp.TRAP", other_level(change));
    }
    set("module.snmp.TRAP", "critical");
    while (read_file(std::string{zlog_folder} + "SNMP.conf").find("SNMP_TRAP.=ERROR") != std::string::npos) {
        replacements.wait_for("SNMP.conf");
    }
    print_figure("resident memory after 10 000 changes", test::kilobytes(daemon.pid(), "VmRSS:"),
                 "no growth");
    require(daemon.terminate() == 0, "the daemon failed");
}

} // namespace
} // namespace xpon::bench

int main(int argc, char** argv) {
    using namespace xpon::bench;
    try {
        std::ofstream samples{argc == 3 && std::string_view{argv[1]} == "--samples" ? argv[2] : "/dev/null"};
        // Only the daemon is measured here, not a syslog-ng.
        xpon::test::write_file("/usr/sbin/syslog-ng-ctl", "#!/bin/sh\nexit 0\n");
        require(chmod("/usr/sbin/syslog-ng-ctl", 0755) == 0, "chmod");
        shell_command();
        commits();
        start(samples);
        change_and_memory(samples);
        change_in_the_largest_file();
    } catch (std::exception const& error) {
        fmt::print(stderr, "board_bench: {}\n", error.what());
        return 1;
    }
    return 0;
}
