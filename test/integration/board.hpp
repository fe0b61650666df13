#pragma once

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <syslog.h>

#include "core/unique_fd.hpp"
#include "kit/child_process.hpp"
#include "kit/golden.hpp"
#include "kit/matchers.hpp"
#include "kit/notify_socket.hpp"
#include "kit/process_status.hpp"
#include "kit/scratch_folder.hpp"
#include "kit/wait_readable.hpp"
#include "xpon/cfgdb/transaction.hpp"
#include "xpon/log_config/paths.hpp"

namespace xpon::test {

/// A log receiver at a free UDP port of 127.0.0.1.
class UdpReceiver {
  public:
    UdpReceiver()
      : socket{::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)} {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (bind(socket.get(), reinterpret_cast<sockaddr*>(&address), length) != 0 ||
            getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
            throw std::system_error{errno, std::generic_category(), "UDP receiver"};
        }
        number = ntohs(address.sin_port);
    }

    std::uint16_t port() const { return number; }

    /// True once a datagram holds the text; false at the deadline. Everything that came is kept.
    bool wait_for(std::string const& text, std::chrono::milliseconds deadline = default_deadline) {
        auto const end = std::chrono::steady_clock::now() + deadline;
        while (everything.find(text) == std::string::npos) {
            if (!wait_readable(socket.get(), time_left(end))) {
                return false;
            }
            char buffer[65536];
            auto const size = recv(socket.get(), buffer, sizeof buffer, 0);
            everything.append(buffer, size > 0 ? static_cast<std::size_t>(size) : 0).push_back('\n');
        }
        return true;
    }

    std::string const& received() const { return everything; }

  private:
    core::UniqueFd socket;
    std::uint16_t number = 0;
    std::string everything;
};

/// A program that says READY=1 when it can be used.
struct Program {
    Program(Command command, std::filesystem::path const& socket)
      : notifications{socket}
      , output{command.output}
      , process{with(std::move(command), notifications)} {}

    /// Whether it said so in time; if not, what it wrote instead.
    testing::AssertionResult wait_ready() {
        if (notifications.wait_for("READY=1")) {
            return testing::AssertionSuccess();
        }
        return testing::AssertionFailure() << "not ready, it wrote: " << read_file(output);
    }

    /// As the kernel does when memory runs out.
    void kill() {
        process.kill(SIGKILL);
        process.wait();
    }

    NotifySocket notifications;
    std::filesystem::path output;
    ChildProcess process;

  private:
    static Command with(Command command, NotifySocket const& socket) {
        command.environment.push_back(socket.environment());
        return command;
    }
};

/// The board's programs, real ones, at the daemon's fixed paths: for test programs that run in a sandbox.
class Board : public testing::Test {
  protected:
    Board() {
        if (!std::filesystem::exists("/boot/running")) { // else it would change this machine's own settings
            std::fputs("This is not a sandbox; run: scripts/sandbox PROGRAM\n", stderr);
            std::_Exit(EXIT_FAILURE);
        }
    }

    static constexpr auto syslog_ng_conf = log_config::syslog_ng_conf;
    static constexpr auto zlog_folder = log_config::zlog_folder;
    static constexpr auto printk = log_config::printk;
    static constexpr char const* database = "/var/lib/xpon/cfgdb";
    static constexpr char const* log_file = "/var/log/system.log.1";
    static constexpr char const* console = "/dev/console";

    // What the daemon tells the service manager.
    static constexpr char const* starting = "STATUS=Startup LOG Configurator...";
    static constexpr char const* ready = "READY=1\nSTATUS=Processing requests...\n";
    static constexpr char const* stopping = "STATUS=Shutdown LOG Configurator...\nSTOPPING=1\n";

    std::unique_ptr<Program> start(std::vector<std::string> argv) {
        auto const name =
            fmt::format("{}.{}", std::filesystem::path{argv.front()}.filename().string(), ++started);
        return std::make_unique<Program>(
            Command{.argv = std::move(argv), .environment = {}, .output = scratch / (name + ".out")},
            scratch / name);
    }

    void start_journald() {
        journald = start({XPON_SCRIPTS "/lib/start-journald"});
        ASSERT_TRUE(journald->wait_ready());
    }

    /// syslog-ng as it stands before the daemon has configured it.
    void start_syslog_ng() {
        if (!std::filesystem::exists(syslog_ng_conf)) {
            write_file(syslog_ng_conf, "@version: 3.20\nlog { source { systemd-journal(); }; };\n");
        }
        syslog_ng = start({XPON_SCRIPTS "/lib/start-syslog-ng"});
        ASSERT_TRUE(syslog_ng->wait_ready());
    }

    void start_broker() {
        broker = start({XPON_BROKER});
        ASSERT_TRUE(broker->wait_ready());
    }

    void launch_daemon() { daemon = start({XPON_DAEMON}); }

    /// Starts the daemon and waits until it serves. READY=1 comes before the first configuration pass; that
    /// has ended once the kernel level and syslog-ng.conf are there and syslog-ng runs it.
    void start_daemon() {
        launch_daemon();
        ASSERT_TRUE(daemon->wait_ready());
    }

    /// Sends the daemon a signal that stops or restarts it, once every thread that it has begun has run: the
    /// one that watches terminals does not see a stop that comes before, and the daemon then waits for it for
    /// ever.
    void signal_daemon(int signal) const {
        EXPECT_TRUE(wait_until([&] { return every_thread_has_waited(); }));
        daemon->process.kill(signal);
    }

    /// Ends the daemon as the service manager would: its exit status, nothing at the deadline.
    std::optional<int> stop_daemon() const {
        signal_daemon(SIGTERM);
        return daemon->process.wait();
    }

    /// The same while it may start or start over, when it ignores the signal: sends it until the daemon ends.
    std::optional<int> stop_starting_daemon(std::chrono::milliseconds deadline = default_deadline) const {
        std::optional<int> status;
        wait_until(
            [&] {
                signal_daemon(SIGTERM);
                status = daemon->process.wait(std::chrono::milliseconds{200});
                return status.has_value();
            },
            deadline);
        return status;
    }

    /// Every program but the daemon.
    void start_tools() {
        start_journald();
        start_syslog_ng();
        start_broker();
    }

    /// Every program, the daemon configured and syslog-ng running what it wrote.
    void start_everything() {
        start_tools();
        start_daemon();
        ASSERT_TRUE(wait_until_logged(log_file));
    }

    /// What the daemon has told the service manager, message by message.
    std::vector<std::string> notified() { return daemon->notifications.datagrams(); }

    static void set(std::vector<std::pair<std::string, std::string>> const& settings) {
        cfgdb::Transaction transaction;
        for (auto const& [path, value] : settings) {
            ASSERT_THAT(transaction.set(path, value), IsOk());
        }
        ASSERT_THAT(transaction.commit(database), IsOk());
    }

    /// A message to the journal, as any program of the board would log it.
    static void log(int priority, std::string const& text) {
        openlog("board-test", 0, LOG_LOCAL0);
        syslog(priority, "%s", text.c_str());
        closelog();
    }

    static std::string contents(std::filesystem::path const& path) {
        return std::filesystem::exists(path) ? read_file(path) : "";
    }

    static bool wait_for_text(std::filesystem::path const& path, std::string const& text) {
        return wait_until([&] { return contents(path).find(text) != std::string::npos; });
    }

    /// Logs tokens until one arrives: from then on syslog-ng runs a configuration that lets it through.
    static bool wait_until_logged(std::filesystem::path const& path, int priority = LOG_ERR) {
        return wait_until([&] {
            auto const token = unique_token();
            log(priority, token);
            return wait_until([&] { return contents(path).find(token) != std::string::npos; },
                              std::chrono::milliseconds{200});
        });
    }

    /// suppress(10) swallows repeated messages, so every message is a different one.
    static std::string unique_token() {
        static int count = 0;
        return fmt::format("token-{}-{}-", getpid(), ++count);
    }

    /// What the journal holds, by these options of journalctl(1).
    static std::string journal(std::vector<std::string> const& options = {}) {
        ScratchFolder const folder;
        std::vector<std::string> argv{"journalctl", "--quiet", "--no-pager", "--output=cat",
                                      "--directory=/run/log/journal"};
        argv.insert(argv.end(), options.begin(), options.end());
        ChildProcess{{.argv = argv, .environment = {}, .output = folder / "journal"}}.wait();
        return contents(folder / "journal");
    }

    /// Makes a file that takes all that is left of its disk.
    static void fill_disk(std::filesystem::path const& path) {
        std::ofstream fill{path, std::ios::binary};
        std::string const block(4096, 'x');
        while (fill.write(block.data(), static_cast<std::streamsize>(block.size())).flush()) {
        }
    }

    static std::size_t count_entries(std::filesystem::path const& folder) {
        std::error_code ignored;
        std::filesystem::directory_iterator const entries{folder, ignored};
        return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
    }

    std::filesystem::path proc() const { return fmt::format("/proc/{}", daemon->process.pid()); }
    std::size_t descriptors() const { return count_entries(proc() / "fd"); }
    std::size_t threads() const { return count_entries(proc() / "task"); }
    std::string children() const {
        return contents(proc() / fmt::format("task/{}/children", daemon->process.pid()));
    }

    /// A figure of the daemon's memory, such as "VmSize:".
    long kilobytes(std::string_view figure) const { return test::kilobytes(daemon->process.pid(), figure); }

    /// Memory that the daemon shares with nobody.
    long own_kilobytes() const { return kilobytes("RssAnon:"); }

    /// Whether each of the daemon's threads but the first has waited for something, as all of them do in
    /// their loops. True for a daemon that has ended.
    bool every_thread_has_waited() const {
        std::error_code ended;
        auto const first = std::to_string(daemon->process.pid());
        for (std::filesystem::directory_iterator task{proc() / "task", ended}, end; task != end;
             task.increment(ended)) {
            std::ifstream status{task->path() / "status"};
            std::string text; // stays empty if the thread ends meanwhile
            std::getline(status, text, '\0');
            if (task->path().filename() != first &&
                text.find("\nvoluntary_ctxt_switches:\t0\n") != std::string::npos) {
                return false;
            }
        }
        return true;
    }

    /// Whether the daemon has said how it ends and its first thread waits for another while one is in poll():
    /// the one that watches terminals had not begun when it was stopped, and watches for ever.
    bool waits_for_its_poller() {
        if (auto const told = notified();
            told.size() < 2 || told.back().find("READY=1") != std::string::npos) {
            return false;
        }
        auto const waits_in = [&](std::filesystem::path const& thread, char const* function) {
            return contents(thread / "wchan").find(function) != std::string::npos;
        };
        std::filesystem::directory_iterator const threads{proc() / "task"};
        return waits_in(proc() / "task" / std::to_string(daemon->process.pid()), "futex") &&
               std::any_of(begin(threads), end(threads),
                           [&](auto const& thread) { return waits_in(thread, "poll_schedule"); });
    }

    ScratchFolder scratch;
    int started = 0;
    std::unique_ptr<Program> journald;
    std::unique_ptr<Program> syslog_ng;
    std::unique_ptr<Program> broker;
    std::unique_ptr<Program> daemon;
};

} // namespace xpon::test
