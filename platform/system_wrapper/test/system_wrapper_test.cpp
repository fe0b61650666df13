#include "xpon/system_wrapper/system_wrapper.hpp"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <future>
#include <optional>
#include <sstream>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "core/blocked_signals.hpp"
#include "core/unique_fd.hpp"
#include "kit/fifo.hpp"
#include "kit/matchers.hpp"
#include "kit/names_in.hpp"
#include "kit/scratch_folder.hpp"
#include "kit/wait_readable.hpp"

namespace xpon::system_wrapper {
namespace {

using core::Error;
using namespace std::chrono_literals;
using test::IsError;
using test::IsOkAnd;
using test::read_file;
using test::ScratchFolder;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

/// The error that a system call reports instead of doing its work; `once` then works again.
struct Fault {
    char const* call = "";
    int error = 0;
    bool once = false;
};
std::atomic<Fault const*> ordered = nullptr;

/// Orders a fault for as long as it lives.
class Order {
  public:
    explicit Order(Fault wanted)
      : fault{wanted} {
        ordered = &fault;
    }
    ~Order() { ordered = nullptr; }
    Order(Order const&) = delete;
    Order& operator=(Order const&) = delete;

  private:
    Fault fault;
};

std::optional<int> error_of(std::string_view call) {
    auto const* const fault = ordered.load();
    if (fault == nullptr || fault->call != call) {
        return std::nullopt;
    }
    if (fault->once) {
        ordered = nullptr;
    }
    return fault->error;
}

extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the linker gives these names
int __real_open(char const* path, int flags, ...);
int __real_pidfd_open(pid_t pid, unsigned flags);
int __real_posix_spawnp(pid_t* pid, char const* path, posix_spawn_file_actions_t const* actions,
                        posix_spawnattr_t const* attributes, char* const* arguments,
                        char* const* environment);
pid_t __real_waitpid(pid_t pid, int* status, int options);

int __wrap_open(char const* path, int flags, ...) {
    if (auto const error = error_of("open")) {
        errno = *error;
        return -1;
    }
    va_list rest;
    va_start(rest, flags);
    auto const mode = va_arg(rest, mode_t);
    va_end(rest);
    return __real_open(path, flags, mode);
}

int __wrap_pidfd_open(pid_t pid, unsigned flags) {
    if (auto const error = error_of("pidfd_open")) {
        errno = *error;
        return -1;
    }
    return __real_pidfd_open(pid, flags);
}

int __wrap_posix_spawnp(pid_t* pid, char const* path, posix_spawn_file_actions_t const* actions,
                        posix_spawnattr_t const* attributes, char* const* arguments,
                        char* const* environment) {
    if (auto const error = error_of("posix_spawnp")) {
        return *error;
    }
    return __real_posix_spawnp(pid, path, actions, attributes, arguments, environment);
}

pid_t __wrap_waitpid(pid_t pid, int* status, int options) {
    if (auto const error = error_of("waitpid")) {
        errno = *error;
        return -1;
    }
    return __real_waitpid(pid, status, options);
}
// NOLINTEND(bugprone-reserved-identifier)
}

core::Result<int> run(std::string const& command) {
    return SystemWrapper{}.execute(command);
}

/// What the command wrote to its standard output, by way of a file.
std::string output_of(std::string const& command) {
    ScratchFolder const folder;
    auto const result = run("exec > '" + (folder / "out").string() + "'\n" + command);
    EXPECT_THAT(result, IsOkAnd(0));
    return read_file(folder / "out");
}

std::size_t descriptors_in_use() {
    return test::names_in("/proc/self/fd").size();
}

/// A named pipe that the test reads and the command writes. It reads as ended once no process has it open.
class CommandPipe {
  public:
    CommandPipe() {
        EXPECT_EQ(mkfifo(path().c_str(), 0600), 0);
        reading = core::UniqueFd{::open(path().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)};
        EXPECT_TRUE(reading);
    }

    std::string path() const { return folder / "pipe"; }

    /// Everything that was written until the last writer was gone; fails the test at the deadline.
    std::string read_to_end() const {
        std::string text;
        std::array<char, 512> part{};
        for (;;) {
            if (!test::wait_readable(reading.get())) {
                ADD_FAILURE() << "somebody still has the pipe open; so far: " << text;
                return text;
            }
            auto const size = ::read(reading.get(), part.data(), part.size());
            if (size <= 0) {
                return text;
            }
            text.append(part.data(), static_cast<std::size_t>(size));
        }
    }

  private:
    ScratchFolder folder;
    core::UniqueFd reading;
};

/// A disposition of this process while it lives.
class Disposition {
  public:
    Disposition(int number, void (*handler)(int))
      : signal{number} {
        struct sigaction action{};
        action.sa_handler = handler;
        sigaction(signal, &action, &before);
    }
    ~Disposition() { sigaction(signal, &before, nullptr); }
    Disposition(Disposition const&) = delete;
    Disposition& operator=(Disposition const&) = delete;

  private:
    int signal;
    struct sigaction before{};
};

std::atomic<unsigned> handled = 0;

void count_signal(int /*signal*/) {
    ++handled;
}

/// A variable of this process's environment while it lives.
class Variable {
  public:
    Variable(char const* variable, char const* value)
      : name{variable}
      , before{std::getenv(name) != nullptr ? std::optional<std::string>{std::getenv(name)} : std::nullopt} {
        setenv(name, value, 1);
    }
    ~Variable() {
        if (before) {
            setenv(name, before->c_str(), 1);
        } else {
            unsetenv(name);
        }
    }
    Variable(Variable const&) = delete;
    Variable& operator=(Variable const&) = delete;

  private:
    char const* name;
    std::optional<std::string> before;
};

TEST(SystemWrapper, TheValueIsTheExitStatusOrTheSignalAbove128) {
    constexpr std::pair<char const*, int> cases[] = {
        {"true", 0},
        {"false", 1},
        {"exit 0", 0},
        {"exit 5", 5},
        {"exit 255", 255},
        {"", 0},
        {"kill -TERM $$", 128 + SIGTERM},
        {"kill -KILL $$", 128 + SIGKILL},
        {"exec 2> /dev/null; (kill -ABRT $BASHPID)", 128 + SIGABRT},
        {"no-such-program-anywhere 2> /dev/null", 127},
        {"/dev/null 2> /dev/null", 126},
        {"exec 2> /dev/null; eval 'if ('", 2},
    };
    for (auto const& [command, status] : cases) {
        EXPECT_THAT(run(command), IsOkAnd(status)) << command;
    }
}

TEST(SystemWrapper, AFailingCommandWhoseOutputIsDiscardedKeepsItsStatus) {
    EXPECT_THAT(run("false &> /dev/null"), IsOkAnd(1));
    EXPECT_THAT(run("bash -c 'exit 9' &> /dev/null"), IsOkAnd(9));
    EXPECT_THAT(run("true &> /dev/null"), IsOkAnd(0));
}

TEST(SystemWrapper, TheTextReachesTheShellUnchanged) {
    EXPECT_EQ(output_of("printf '%s|' 'two\nlines' \"quoted \\\"text\\\"\" $'tab\\there' '*' '$HOME' '&> x'"),
              "two\nlines|quoted \"text\"|tab\there|*|$HOME|&> x|");
    EXPECT_EQ(output_of("for n in 1 2 3\ndo\n  echo $n\ndone\n\n# a remark\n"), "1\n2\n3\n");
}

TEST(SystemWrapper, ATextThatBeginsWithADashIsACommandNotAnOption) {
    EXPECT_THAT(run("-x 2> /dev/null"), IsOkAnd(127));
    EXPECT_THAT(run("--version &> /dev/null"), IsOkAnd(127));
}

TEST(SystemWrapper, ATextWithANulByteIsRefused) {
    EXPECT_THAT(run(std::string{"exit 3\0 4", 9}),
                IsError(Error::InvalidInputArg, "Command \"exit 3\" goes on after a NUL byte"));
}

TEST(SystemWrapper, StandardInputIsEmpty) {
    EXPECT_THAT(run("read -r line"), IsOkAnd(1));
    EXPECT_EQ(output_of("wc -c; readlink /proc/$$/fd/0"), "0\n/dev/null\n");
}

TEST(SystemWrapper, NoDescriptorAboveTwoIsInherited) {
    core::UniqueFd const low{::open("/dev/null", O_RDONLY)};
    core::UniqueFd const high{::fcntl(low.get(), F_DUPFD, 300)};
    ASSERT_GE(high.get(), 300);
    // The shell has the folder itself open only while it lists it.
    EXPECT_EQ(output_of("for fd in /proc/$$/fd/*; do [ -e $fd ] && echo ${fd##*/}; done; :"), "0\n1\n2\n");
}

TEST(SystemWrapper, TheCommandIsTheLeaderOfAProcessGroupOfItsOwn) {
    EXPECT_EQ(output_of("read -r _ _ _ _ group _ < /proc/$$/stat; [ $group = $$ ] && echo own"), "own\n");
}

TEST(SystemWrapper, SignalsHaveTheirDefaultsWhateverTheCallerIgnoresOrBlocks) {
    Disposition const pipe{SIGPIPE, SIG_IGN};
    Disposition const hangup{SIGHUP, SIG_IGN};
    Disposition const real_time{SIGRTMAX, SIG_IGN};
    core::BlockedSignals const blocked;
    std::istringstream status{output_of("sed -nE 's/^Sig(Blk|Ign|Cgt):// p' /proc/self/status")};
    std::uint64_t blocked_signals = 1;
    std::uint64_t ignored_signals = 1;
    std::uint64_t handled_signals = 1;
    status >> std::hex >> blocked_signals >> ignored_signals >> handled_signals;
    ASSERT_TRUE(status);
    // The C library has 32 and 33 for itself, and nobody else can send or set them.
    constexpr std::uint64_t inside_the_library = 3ULL << 31;
    EXPECT_EQ(blocked_signals, 0U);
    EXPECT_EQ(ignored_signals & ~inside_the_library, 0U);
    EXPECT_EQ(handled_signals, 0U);
}

TEST(SystemWrapper, TheEnvironmentIsAFixedPathWhateverTheCallersIs) {
    ScratchFolder const folder;
    test::write_file(folder / "script", "exit 9\n");
    auto const script = (folder / "script").string();
    std::pair<char const*, char const*> const variables[] = {
        {"PATH", "/nonexistent"},
        {"BASH_ENV", script.c_str()},
        {"ENV", script.c_str()},
        {"SHELLOPTS", "noexec"},
        {"BASHOPTS", "failglob"},
        {"POSIXLY_CORRECT", "1"},
        {"BASH_FUNC_echo%%", "() { exit 9; }"},
        {"BASH_FUNC_wc%%", "() { exit 9; }"},
        {"IFS", "/"},
        {"GLOBIGNORE", "*"},
        {"CDPATH", "/"},
        {"LD_PRELOAD", "/nonexistent.so"},
        {"LC_ALL", "nonsense"},
        {"HOME", "/nonexistent"},
    };
    auto const expect_unmoved = [] {
        // What a program is given, and what the shell has made of it: the variables that are exported.
        EXPECT_EQ(output_of("tr '\\0' '\\n' < /proc/$$/environ"), "PATH=/usr/sbin:/usr/bin:/sbin:/bin\n");
        EXPECT_EQ(output_of("env | sed 's/=.*//' | sort"), "PATH\nPWD\nSHLVL\n_\n");
        EXPECT_EQ(output_of("declare -F; echo $-; type -P wc"), "hBc\n/usr/bin/wc\n");
    };
    for (auto const& [name, value] : variables) {
        SCOPED_TRACE(name);
        Variable const one{name, value};
        expect_unmoved();
    }
}

TEST(SystemWrapper, OutputGoesWhereTheCallerSendsIts) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_THAT(run("echo to output; echo to error >&2"), IsOkAnd(0));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "to output\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "to error\n");
}

TEST(SystemWrapper, ACommandThatLeavesProcessesBehindEndsWhenItEndsItself) {
    CommandPipe const pipe;
    ScratchFolder const folder;
    test::Fifo const gate{folder / "gate"};
    EXPECT_THAT(run("(read -r word < " + gate.path() + "; echo $word > " + pipe.path() + ") & exit 6"),
                IsOkAnd(6));
    EXPECT_TRUE(gate.feed("later\n"));
    EXPECT_EQ(pipe.read_to_end(), "later\n");
}

TEST(SystemWrapper, ACommandThatRunsTooLongIsKilledWithItsWholeGroup) {
    CommandPipe const pipe;
    auto const command =
        "exec 8> " + pipe.path() +
        "; trap '' TERM HUP INT; (trap '' TERM HUP; (echo grandchild >&8; sleep 1000) & wait) & wait";
    EXPECT_THAT(
        SystemWrapper{3s}.execute(command),
        IsError(Error::CommonError, "Command \"" + command + "\" ran longer than 3000 ms and was killed"));
    // The pipe ends only when no process has it open any more.
    EXPECT_EQ(pipe.read_to_end(), "grandchild\n");
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(SystemWrapper, TheLimitHoldsForAStoppedCommandToo) {
    EXPECT_THAT(
        SystemWrapper{100ms}.execute("kill -STOP $$"),
        IsError(Error::CommonError, "Command \"kill -STOP $$\" ran longer than 100 ms and was killed"));
}

TEST(SystemWrapper, TheLargestLimitIsNoLimit) {
    EXPECT_THAT(SystemWrapper{std::chrono::milliseconds::max()}.execute("exit 4"), IsOkAnd(4));
}

TEST(SystemWrapper, ALongCommandIsNamedByItsBeginning) {
    EXPECT_THAT(SystemWrapper{50ms}.execute("sleep 1000 # " + std::string(1000, 'x')),
                IsError(Error::CommonError, AllOf(StartsWith("Command \"sleep 1000 # xxx"),
                                                  EndsWith("x\" ran longer than 50 ms and was killed"))));
}

TEST(SystemWrapper, WithoutPidfdTheStatusAndTheLimitStillHold) {
    Order const order{{"pidfd_open", ENOSYS}};
    EXPECT_THAT(run("exit 7"), IsOkAnd(7));
    EXPECT_THAT(run("kill -9 $$"), IsOkAnd(137));
    EXPECT_THAT(SystemWrapper{100ms}.execute("sleep 1000"), IsError(Error::CommonError, HasSubstr("longer")));
}

TEST(SystemWrapper, WhatKeepsACommandFromRunningIsNamed) {
    struct Case {
        Fault fault;
        char const* message;
    };
    constexpr Case cases[] = {
        {{"posix_spawnp", EAGAIN},
         "Cannot run /bin/bash for command \"exit 3\": Resource temporarily unavailable"},
        {{"posix_spawnp", ENOMEM}, "Cannot run /bin/bash for command \"exit 3\": Cannot allocate memory"},
        {{"posix_spawnp", EACCES}, "Cannot run /bin/bash for command \"exit 3\": Permission denied"},
        {{"open", EMFILE}, "Cannot open /dev/null for command \"exit 3\": Too many open files"},
    };
    for (auto const& [fault, message] : cases) {
        Order const order{fault};
        EXPECT_THAT(run("exit 3"), IsError(Error::CommonError, message));
    }
    EXPECT_THAT(run("exit 3"), IsOkAnd(3));
}

TEST(SystemWrapper, ATextLongerThanTheSystemTakesIsAnErrorThatSaysSo) {
    EXPECT_THAT(run(": " + std::string(3'000'000, 'x')),
                IsError(Error::CommonError, AllOf(StartsWith("Cannot run /bin/bash for command \": xxx"),
                                                  EndsWith("x\": Argument list too long"))));
    EXPECT_THAT(run(": " + std::string(100'000, 'x') + "; exit 8"), IsOkAnd(8));
}

TEST(SystemWrapper, AStatusThatSomebodyElseTookIsAnError) {
    SystemWrapper system;
    Disposition const reaped_by_the_kernel{SIGCHLD, SIG_IGN};
    EXPECT_THAT(system.execute("exit 3"),
                IsError(Error::CommonError, "Exit status of command \"exit 3\" is lost: No child processes"));
}

TEST(SystemWrapper, AProcessStartedToIgnoreSigchldStillGetsExitStatuses) {
    Disposition const inherited{SIGCHLD, SIG_IGN};
    EXPECT_THAT(run("exit 3"), IsOkAnd(3));
}

TEST(SystemWrapper, AHandlerOfTheCallersForSigchldStays) {
    Disposition const of_the_caller{SIGCHLD, count_signal};
    handled = 0;
    EXPECT_THAT(run("exit 3"), IsOkAnd(3));
    EXPECT_TRUE(test::wait_until([] { return handled > 0; }));
}

TEST(SystemWrapper, AnInterruptedReapingIsRepeated) {
    Order const order{{"waitpid", EINTR, true}};
    EXPECT_THAT(run("exit 11"), IsOkAnd(11));
    EXPECT_EQ(ordered.load(), nullptr);
}

/// Interrupts a thread again and again while it lives.
class SignalStorm {
  public:
    explicit SignalStorm(pthread_t target)
      : storm{[this, target] {
          while (!over) {
              pthread_kill(target, SIGUSR1);
              std::this_thread::yield();
          }
      }} {}
    ~SignalStorm() {
        over = true;
        storm.join();
    }
    SignalStorm(SignalStorm const&) = delete;
    SignalStorm& operator=(SignalStorm const&) = delete;

  private:
    Disposition counted{SIGUSR1, count_signal};
    std::atomic<bool> over = false;
    std::thread storm;
};

TEST(SystemWrapper, ACommandSurvivesAStormOfSignalsAtItsCaller) {
    ScratchFolder const folder;
    test::Fifo const gate{folder / "gate"};
    handled = 0;
    SignalStorm const storm{pthread_self()};
    // The command ends only after the caller has been interrupted a thousand times.
    std::thread opener{[&gate] {
        EXPECT_TRUE(test::wait_until([] { return handled > 1000; }));
        EXPECT_TRUE(gate.feed("go\n"));
    }};
    EXPECT_THAT(run("read -r word < " + gate.path() + "; [ $word = go ] && exit 12"), IsOkAnd(12));
    opener.join();
}

TEST(SystemWrapper, TheLimitHoldsInAStormOfSignals) {
    SignalStorm const storm{pthread_self()};
    EXPECT_THAT(SystemWrapper{300ms}.execute("sleep 1000"), IsError(Error::CommonError, HasSubstr("longer")));
}

TEST(SystemWrapper, CommandsOfSeveralThreadsRunSideBySide) {
    ScratchFolder const folder;
    test::Fifo const meeting{folder / "meeting"};
    SystemWrapper system;
    // Each waits for the other: one after the other they would both be killed.
    auto other =
        std::async(std::launch::async, [&] { return system.execute("echo word > " + meeting.path()); });
    EXPECT_THAT(system.execute("read -r word < " + meeting.path() + " && [ $word = word ]"), IsOkAnd(0));
    EXPECT_THAT(other.get(), IsOkAnd(0));
}

TEST(SystemWrapper, ManyThreadsGetEachItsOwnStatus) {
    SystemWrapper system;
    std::array<std::future<void>, 8> threads;
    for (std::size_t number = 0; number < threads.size(); ++number) {
        threads.at(number) = std::async(std::launch::async, [&system, number] {
            for (int round = 0; round < 6; ++round) {
                auto const status = static_cast<int>(number) * 10 + round;
                EXPECT_THAT(system.execute("exit " + std::to_string(status)), IsOkAnd(status));
            }
        });
    }
    for (auto& thread : threads) {
        thread.get();
    }
}

TEST(SystemWrapper, TwoHundredRunsLeaveNoDescriptorAndNoProcess) {
    auto const before = descriptors_in_use();
    for (int round = 0; round < 200; ++round) {
        ASSERT_THAT(run(round % 2 == 0 ? "exit 1" : "kill -9 $$"), IsOkAnd(round % 2 == 0 ? 1 : 137));
    }
    ASSERT_THAT(SystemWrapper{0ms}.execute("sleep 1000"), IsError(Error::CommonError, HasSubstr("longer")));
    EXPECT_EQ(descriptors_in_use(), before);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

} // namespace
} // namespace xpon::system_wrapper
