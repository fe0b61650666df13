#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/unique_fd.hpp"
#include "kit/child_process.hpp"
#include "kit/report.hpp"
#include "kit/scratch_folder.hpp"
#include "kit/wait_readable.hpp"

namespace xpon::test {
namespace {

constexpr auto sandbox = XPON_SCRIPTS "/sandbox";

/// Runs scripts/sandbox from outside, its private files below `folder`.
struct Sandbox : testing::Test {
    ChildProcess start(std::vector<std::string> const& arguments) {
        std::vector<std::string> argv{sandbox};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        return ChildProcess{{.argv = argv, .environment = {}, .output = folder / "output"}};
    }
    ChildProcess start_script(std::string const& script) {
        return start({"--root", folder.path(), "bash", "-c", script});
    }
    std::optional<int> run_script(std::string const& script) { return start_script(script).wait(); }

    std::string output() const { return read_file(folder / "output"); }
    std::string from_outside(std::string const& path) const {
        return read_file(folder.path().string() + path);
    }

    /// The reading end of the named pipe `alive` in the folder. It becomes readable by what a program writes
    /// into it, and by the end of the last process that has it open for writing.
    core::UniqueFd open_alive() {
        mkfifo(alive.c_str(), S_IRUSR | S_IWUSR);
        return core::UniqueFd{open(alive.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)};
    }

    ScratchFolder folder;
    std::string alive = folder / "alive";
};

/// Waits for a byte or, with 0, for the end.
ssize_t next_byte(core::UniqueFd const& pipe) {
    char byte = 0;
    return wait_readable(pipe.get(), default_deadline) ? read(pipe.get(), &byte, 1) : -1;
}

TEST_F(Sandbox, PassesOnTheProgramsExitStatus) {
    struct Case {
        std::vector<std::string> arguments;
        int status;
    };
    for (auto const& [arguments, status] : {
             Case{{"true"}, 0},
             Case{{"--", "bash", "-c", "exit 7"}, 7},
             Case{{"bash", "-c", "kill -TERM $$"}, 128 + SIGTERM},
             Case{{"bash", "-c", "kill -KILL $$"}, 128 + SIGKILL},
             Case{{"bash", "-c", "kill -SEGV $$"}, 128 + SIGSEGV},
             Case{{"no-such-program"}, 127},
             Case{{"--no-such-option"}, 125},
             Case{{"--root"}, 125},
             Case{{}, 125},
         }) {
        EXPECT_EQ(start(arguments).wait(), status) << testing::PrintToString(arguments) << '\n' << output();
    }
}

TEST_F(Sandbox, HasTheFixedPathsPrivateAndShowsThemBelowTheRoot) {
    auto const name = folder.path().filename().string(); // in use nowhere else
    std::vector<std::string> const folders{"/etc/syslog-ng", "/etc/zlog_modules_config", "/run",    "/tmp",
                                           "/var/lib/xpon",  "/var/lib/syslog-ng",       "/var/log"};
    std::string script = "echo 7 >/proc/sys/kernel/printk; echo text >/dev/console";
    for (auto const& path : folders) {
        script += fmt::format("; echo text >{}/{}.file", path, name);
    }
    auto const level = read_file("/proc/sys/kernel/printk");
    EXPECT_EQ(run_script(script), 0) << output();

    for (auto const& path : folders) {
        EXPECT_EQ(from_outside(fmt::format("{}/{}.file", path, name)), "text\n");
        EXPECT_FALSE(std::filesystem::exists(fmt::format("{}/{}.file", path, name)));
    }
    EXPECT_EQ(from_outside("/proc/sys/kernel/printk"), "7\n");
    EXPECT_EQ(from_outside("/dev/console"), "text\n");
    EXPECT_EQ(read_file("/proc/sys/kernel/printk"), level);
}

TEST_F(Sandbox, LaysFilesOfTheRootOverThoseOfTheHostAndForgetsWhatIsWrittenThere) {
    std::filesystem::create_directories(folder / "usr/sbin");
    write_file(folder / "usr/sbin/syslog-ng-ctl", "#!/bin/sh\necho replaced \"$@\"\n");
    std::filesystem::permissions(folder / "usr/sbin/syslog-ng-ctl", std::filesystem::perms::owner_all);
    auto const name = folder.path().filename().string();
    EXPECT_EQ(run_script("syslog-ng-ctl reload && test -e /usr/sbin/chroot && touch /usr/sbin/" + name +
                         " /etc/" + name),
              0);
    EXPECT_EQ(output(), "replaced reload\n");
    EXPECT_FALSE(std::filesystem::exists("/usr/sbin/" + name));
    EXPECT_FALSE(std::filesystem::exists("/etc/" + name));
}

TEST_F(Sandbox, LetsNothingElseBeWritten) {
    auto const name = folder.path().filename().string(); // in use nowhere else
    std::vector<std::string> const places{
        "/",     "/" + name, "/usr/lib",      "/usr/lib/" + name, "/opt", "/opt/" + name,
        "/home", "/var/tmp", "/sys/fs/cgroup"};
    std::string script;
    for (auto const& place : places) {
        script += fmt::format("mkdir -p {0}; echo text >{0}/{1}.file && exit 1; ", place, name);
    }
    script += "limit=$(</proc/sys/kernel/threads-max); ! echo \"$limit\" >/proc/sys/kernel/threads-max";
    EXPECT_EQ(run_script(script), 0) << output();
    EXPECT_THAT(output(), testing::HasSubstr("Read-only file system"));
    for (auto const& place : places) {
        auto const file = fmt::format("{}/{}.file", place, name);
        EXPECT_FALSE(std::filesystem::exists(file)) << file;
        std::filesystem::remove(file);
    }
    if (geteuid() == 0) {
        report("a program under test writes where it should not\tin a sandbox, as root: files in `/`, "
               "`/usr/lib`, `/opt`, `/var/tmp` …, in new folders there, in `/proc/sys`\t\"Read-only file "
               "system\"; nothing "
               "reaches the host");
    }
}

TEST_F(Sandbox, KeepsTheFoldersOfItsOptionsWritable) {
    ScratchFolder const kept{"/var/tmp"}; // outside of the source tree and of every private folder
    for (std::string const option : {"--keep", "--root", "--build"}) {
        auto const file = kept / ("by" + option);
        EXPECT_EQ(start({option, kept.path(), "bash", "-c", "echo >" + file.string()}).wait(), 0) << output();
        EXPECT_TRUE(std::filesystem::exists(file));
    }
}

TEST_F(Sandbox, HasNoTerminalsAtFirstThenItsOwn) {
    EXPECT_EQ(run_script("ls /dev/pts && script --quiet --command tty /dev/null"), 0);
    EXPECT_EQ(output(), "ptmx\n/dev/pts/0\r\n");
}

TEST_F(Sandbox, LeadsLogMessagesToTheJournalAndHasNoNetworkButItsOwn) {
    EXPECT_EQ(run_script("readlink /dev/log; ip -oneline -brief address | tr -s ' '; hostname"), 0);
    EXPECT_EQ(output(), "/run/systemd/journal/dev-log\nlo UNKNOWN 127.0.0.1/8 ::1/128 \nsandbox\n");
}

TEST_F(Sandbox, KeepsTheWorkingDirectoryVisibleBelowAPrivateFolder) {
    write_file(folder / "file", "text");
    ChildProcess child{
        {.argv = {"env", "-C", folder.path(), sandbox, "bash", "-c", "pwd; cat file; echo more >file"},
         .environment = {},
         .output = folder / "output"}};
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(output(), folder.path().string() + "\ntext");
    EXPECT_EQ(from_outside("/file"), "more\n");
}

TEST_F(Sandbox, PassesOnTheEnvironment) {
    ChildProcess child{{.argv = {sandbox, "bash", "-c", "echo $NOTIFY_SOCKET ${TMPDIR-unset}"},
                        .environment = {"NOTIFY_SOCKET=@name", "TMPDIR=/no/such/folder"},
                        .output = folder / "output"}};
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(output(), "@name unset\n");
}

TEST_F(Sandbox, PassesSignalsOnToTheProgram) {
    for (int const signal : {SIGTERM, SIGHUP, SIGUSR1, SIGUSR2}) {
        auto const pipe = open_alive();
        auto child =
            start_script(fmt::format("trap 'exit 9' {}; echo >{}; sleep 1000 & wait", signal, alive));
        EXPECT_EQ(next_byte(pipe), 1);
        child.kill(signal);
        EXPECT_EQ(child.wait(), 9) << signal << '\n' << output();
        std::filesystem::remove(alive);
    }
}

TEST_F(Sandbox, EndsBySignalsThatComeBeforeTheProgramRuns) {
    auto child = start({"sleep", "1000"});
    EXPECT_EQ(child.terminate(), 128 + SIGTERM);
}

TEST_F(Sandbox, EndsWithEverythingInItWhenItIsKilled) {
    auto const pipe = open_alive();
    auto child = start_script(fmt::format("exec >{}; echo; sleep 1000", alive));
    EXPECT_EQ(next_byte(pipe), 1);
    child.kill(SIGKILL);
    EXPECT_EQ(next_byte(pipe), 0);
}

TEST_F(Sandbox, EndsWhatTheProgramLeavesBehind) {
    auto const pipe = open_alive();
    EXPECT_EQ(run_script(fmt::format("exec >{}; setsid sleep 1000 & exit 3", alive)), 3);
    EXPECT_EQ(next_byte(pipe), 0);
}

TEST_F(Sandbox, SeesNothingOfOthers) {
    auto const pipe = open_alive();
    auto other = start(
        {"--keep", folder.path(), "bash", "-c", fmt::format("echo >/run/file; echo >{}; sleep 1000", alive)});
    EXPECT_EQ(next_byte(pipe), 1);
    EXPECT_EQ(start({"bash", "-c", "test ! -e /run/file && ! pgrep sleep"}).wait(), 0) << output();
}

} // namespace
} // namespace xpon::test
