#include "xpon/config_writer/config_writer.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <thread>

#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "kit/matchers.hpp"
#include "kit/names_in.hpp"
#include "kit/scratch_folder.hpp"
#include "kit/wait_until.hpp"

namespace xpon::config_writer {
namespace {

using core::Error;
using test::IsError;
using test::IsOk;
using test::names_in;
using test::read_file;
using test::ScratchFolder;
using test::write_file;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace fs = std::filesystem;

/// What the writer's system calls are to do instead of their work, and a record of the calls that it made.
struct Kernel {
    std::string fails;                       // this call fails
    int error = 0;                           // with this error number
    bool only_once = false;                  // and works again afterwards
    std::string kills;                       // this call is where the process is killed
    std::size_t longest = std::string::npos; // bytes that one write takes
    std::function<void()> before_lock;       // happens once, before a temporary is locked
    std::function<void()> while_syncing;     // happens before the text is on the disk
    std::chrono::microseconds disk_takes{0}; // for each call that reaches it
    bool recording = false;
    std::vector<std::string> calls;
};
Kernel kernel;

/// Notes a call of the system; the error number if it is to fail.
std::optional<int> enter(std::string const& call) {
    if (kernel.recording) {
        kernel.calls.push_back(call);
    }
    if (kernel.kills == call) {
        std::raise(SIGKILL);
    }
    if (kernel.fails != call) {
        return std::nullopt;
    }
    if (kernel.only_once) {
        kernel.fails.clear();
    }
    return kernel.error;
}

template <class Call>
auto entered(char const* name, Call call) -> decltype(call()) {
    if (auto const error = enter(name)) {
        errno = *error;
        return -1;
    }
    return call();
}

extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the linker gives these names
int __real_mkostemp(char* pattern, int flags);
int __real_flock(int fd, int operation);
int __real_fchmod(int fd, mode_t mode);
ssize_t __real_write(int fd, void const* data, std::size_t size);
int __real_fdatasync(int fd);
int __real_rename(char const* from, char const* to);

int __wrap_mkostemp(char* pattern, int flags) {
    return entered("mkostemp", [&] { return __real_mkostemp(pattern, flags); });
}

int __wrap_flock(int fd, int operation) {
    if (auto const happens = std::exchange(kernel.before_lock, {})) {
        happens();
    }
    return entered("flock", [&] { return __real_flock(fd, operation); });
}

int __wrap_fchmod(int fd, mode_t mode) {
    return entered("fchmod", [&] { return __real_fchmod(fd, mode); });
}

ssize_t __wrap_write(int fd, void const* data, std::size_t size) {
    std::this_thread::sleep_for(kernel.disk_takes);
    return entered("write", [&] { return __real_write(fd, data, std::min(size, kernel.longest)); });
}

int __wrap_fdatasync(int fd) {
    if (kernel.while_syncing) {
        kernel.while_syncing();
    }
    std::this_thread::sleep_for(kernel.disk_takes);
    return entered("fdatasync", [&] { return __real_fdatasync(fd); });
}

int __wrap_rename(char const* from, char const* to) {
    return entered("rename", [&] { return __real_rename(from, to); });
}
// NOLINTEND(bugprone-reserved-identifier)
}

struct stat status_of(fs::path const& path) {
    struct stat status{};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0);
    return status;
}

/// Not by an emulator of another machine's programs.
bool processes_can_be_traced() {
    auto const child = fork();
    if (child == 0) {
        _exit(ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 ? 0 : 1);
    }
    int status = 0;
    return waitpid(child, &status, 0) == child && status == 0;
}

/// Runs `work` in a process of its own and kills that at the given stop; a process stops where it enters a
/// system call and where it leaves one, the first stop is 0. False once the process has ended before.
template <class Work>
bool kill_at_stop(int stop, Work work) {
    auto const child = fork();
    if (child == 0) {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        std::raise(SIGSTOP); // from here on it is traced
        work();
        _exit(0);
    }
    int status = 0;
    for (int at = -1; waitpid(child, &status, 0) == child && WIFSTOPPED(status); ++at) {
        if (at == stop) {
            kill(child, SIGKILL);
        } else {
            ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
        }
    }
    EXPECT_TRUE(WIFSIGNALED(status) ? WTERMSIG(status) == SIGKILL : WEXITSTATUS(status) == 0) << status;
    return WIFSIGNALED(status);
}

class ConfigWriterTest : public testing::Test {
  protected:
    void TearDown() override { kernel = {}; }

    std::string message(std::string const& step, std::string const& reason) const {
        return fmt::format("Cannot write \"{}\": failed to {} its temporary file: {}", target.string(), step,
                           reason);
    }

    /// What the folder holds besides the target.
    std::set<std::string> others() const {
        auto names = names_in(folder.path());
        names.erase("SNMP.conf");
        return names;
    }

    ScratchFolder folder;
    fs::path target = folder / "SNMP.conf";
    ConfigWriter writer{target};
};

TEST_F(ConfigWriterTest, NothingIsTouchedBeforeTheFirstWrite) {
    EXPECT_THAT(names_in(folder.path()), IsEmpty());
}

TEST_F(ConfigWriterTest, TheFileHoldsExactlyTheTextAndNothingElseIsLeft) {
    std::string const texts[] = {
        "one line\n",
        "",
        "no newline at the end",
        std::string{"a\0b\0", 4},
        "\xff\xfe%s\\n",
        std::string(3'000'000, 'x') + "end",
        "short again",
    };
    for (auto const& text : texts) {
        ASSERT_THAT(writer.write(text), IsOk());
        EXPECT_EQ(read_file(target), text);
        EXPECT_THAT(names_in(folder.path()), ElementsAre("SNMP.conf"));
    }
}

TEST_F(ConfigWriterTest, AnExistingFileIsReplacedAndNotWrittenInto) {
    write_file(target, "old");
    fs::create_hard_link(target, folder / "other-name");
    EXPECT_THAT(writer.write("new"), IsOk());
    EXPECT_EQ(read_file(target), "new");
    EXPECT_EQ(read_file(folder / "other-name"), "old");
}

TEST_F(ConfigWriterTest, TheTextIsOnTheDiskBeforeItTakesTheName) {
    kernel.recording = true;
    ASSERT_THAT(writer.write("text"), IsOk());
    kernel.recording = false;
    EXPECT_THAT(kernel.calls, ElementsAre("mkostemp", "flock", "fchmod", "write", "fdatasync", "rename"));
}

TEST_F(ConfigWriterTest, TheModeIs0644WhateverTheUmaskOrTheOldFileSay) {
    for (mode_t const umask_value : {077U, 0U, 0777U}) {
        auto const before = ::umask(umask_value);
        EXPECT_THAT(writer.write("text"), IsOk());
        ::umask(before);
        EXPECT_EQ(status_of(target).st_mode, S_IFREG | 0644U) << umask_value;
        ASSERT_EQ(::chmod(target.c_str(), 0600), 0);
    }
}

TEST_F(ConfigWriterTest, AFileThatAlreadyHoldsTheTextIsLeftAlone) {
    for (auto const& text : {std::string{}, std::string{"text"}, std::string(3'000'000, 'x')}) {
        ASSERT_THAT(writer.write(text), IsOk());
        auto const before = status_of(target);
        kernel.calls.clear();
        kernel.recording = true;
        EXPECT_THAT(writer.write(text), IsOk());
        kernel.recording = false;
        EXPECT_THAT(kernel.calls, IsEmpty());
        EXPECT_EQ(status_of(target).st_ino, before.st_ino);
        EXPECT_EQ(read_file(target), text);
    }
}

TEST_F(ConfigWriterTest, AFileThatDiffersInAnythingIsReplaced) {
    std::string const text(40'000, 'x');
    auto const other = folder / "other";
    std::pair<char const*, std::function<void()>> const changes[] = {
        {"nothing is there", [&] { fs::remove(target); }},
        {"the last byte", [&] { write_file(target, std::string(39'999, 'x') + 'y'); }},
        {"a byte less", [&] { write_file(target, std::string(39'999, 'x')); }},
        {"a byte more", [&] { write_file(target, text + 'x'); }},
        {"may be read by its owner only", [&] { ::chmod(target.c_str(), 0600); }},
        {"may be written by all", [&] { ::chmod(target.c_str(), 0666); }},
        {"runs as its owner", [&] { ::chmod(target.c_str(), 04644); }},
        {"has a second name", [&] { fs::create_hard_link(target, other); }},
        {"is a link to an equal file",
         [&] {
             write_file(other, text);
             fs::remove(target);
             fs::create_symlink(other, target);
         }},
        {"is a FIFO",
         [&] {
             fs::remove(target);
             ::mkfifo(target.c_str(), 0644);
         }},
        {"belongs to another user", [&] { std::ignore = ::chown(target.c_str(), 65534, 0); }},
    };
    for (auto const& [what, change] : changes) {
        if (::geteuid() != 0 && std::string_view{what} == "belongs to another user") {
            continue; // only root can give a file away
        }
        ASSERT_THAT(writer.write(text), IsOk()) << what;
        change();
        EXPECT_THAT(writer.write(text), IsOk()) << what;
        auto const status = status_of(target);
        EXPECT_EQ(status.st_mode, S_IFREG | 0644U) << what;
        EXPECT_EQ(status.st_uid, ::geteuid()) << what;
        EXPECT_EQ(status.st_nlink, 1U) << what;
        EXPECT_EQ(read_file(target), text) << what;
        fs::remove(other);
    }
}

TEST_F(ConfigWriterTest, ALinkIsReplacedByAFileAndWhatItNamesStays) {
    write_file(folder / "elsewhere", "untouched");
    fs::create_symlink(folder / "elsewhere", target);
    EXPECT_THAT(writer.write("text"), IsOk());
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(target)));
    EXPECT_EQ(read_file(target), "text");
    EXPECT_EQ(read_file(folder / "elsewhere"), "untouched");
}

TEST_F(ConfigWriterTest, ALinkUnderATemporaryNameIsNeitherFollowedNorRemoved) {
    write_file(folder / "elsewhere", "untouched");
    fs::create_symlink(folder / "elsewhere", folder / ".SNMP.conf.tmp");
    fs::create_symlink(folder / "elsewhere", folder / ".SNMP.conf.tmp.aB3xY9");
    EXPECT_THAT(writer.write("text"), IsOk());
    EXPECT_EQ(read_file(folder / "elsewhere"), "untouched");
    EXPECT_THAT(others(), ElementsAre(".SNMP.conf.tmp", ".SNMP.conf.tmp.aB3xY9", "elsewhere"));
}

TEST_F(ConfigWriterTest, LeftoversOfThisTargetAreRemovedAndLookalikesKept) {
    constexpr char const* leftovers[] = {".SNMP.conf.tmp", ".SNMP.conf.tmp.aB3xY9", ".SNMP.conf.tmp.000000"};
    constexpr char const* alike[] = {
        ".SNMP.conf",
        ".SNMP.conf.tmp.",
        ".SNMP.conf.tmp.aB3xY",
        ".SNMP.conf.tmp.aB3xY99",
        ".SNMP.conf.tmp.aB3-Y9",
        ".SNMP.conf.tmp-aB3xY9",
        ".SNMP.conf.tmpaB3xY9x",
        ".SNMP.conf.x.tmp",          // of SNMP.conf.x, by an earlier version
        ".SNMP.conf.x.tmp.aB3xY9",   // of SNMP.conf.x
        ".SNMP.conf.tmp.tmp.aB3xY9", // of SNMP.conf.tmp
        ".SNMP.conf.tmp.aB3xY9.tmp", // of SNMP.conf.tmp.aB3xY9, by an earlier version
        ".SNMP.con.tmp.aB3xY9",
        ".xSNMP.conf.tmp.aB3xY9",
        "SNMP.conf.tmp.aB3xY9",
        "SNMP.conf.tmp",
    };
    for (auto const* const name : leftovers) {
        write_file(folder / name, "half-writ");
    }
    for (auto const* const name : alike) {
        write_file(folder / name, "of somebody else");
    }
    EXPECT_THAT(writer.write("text"), IsOk());
    EXPECT_THAT(others(), testing::UnorderedElementsAreArray(alike));
    EXPECT_EQ(read_file(target), "text");
}

TEST_F(ConfigWriterTest, ALeftoverThatCannotBeRemovedDoesNoHarm) {
    fs::create_directory(folder / ".SNMP.conf.tmp");
    fs::create_directory(folder / ".SNMP.conf.tmp.aB3xY9");
    ASSERT_EQ(mkfifo((folder / ".SNMP.conf.tmp.pipe00").c_str(), 0600), 0);
    EXPECT_THAT(writer.write("text"), IsOk());
    EXPECT_EQ(read_file(target), "text");
    EXPECT_THAT(others(), ElementsAre(".SNMP.conf.tmp", ".SNMP.conf.tmp.aB3xY9", ".SNMP.conf.tmp.pipe00"));
}

TEST_F(ConfigWriterTest, AWriterWhoseTemporaryIsTakenForALeftoverBeforeItIsLockedMakesAnother) {
    auto const clean_up = [&] {
        for (auto const& name : others()) {
            fs::remove(folder / name);
        }
    };
    kernel.before_lock = clean_up;
    EXPECT_THAT(writer.write("text"), IsOk());
    EXPECT_EQ(read_file(target), "text");
    EXPECT_THAT(others(), IsEmpty());

    // The other one has the lock and is about to remove the file.
    int cleaner = -1;
    kernel.before_lock = [&] {
        cleaner = ::open((folder / *others().begin()).c_str(), O_WRONLY | O_CLOEXEC);
        ASSERT_EQ(__real_flock(cleaner, LOCK_EX | LOCK_NB), 0);
    };
    EXPECT_THAT(writer.write("another text"), IsOk());
    EXPECT_EQ(::close(cleaner), 0);
    EXPECT_EQ(read_file(target), "another text");
    EXPECT_THAT(others(), IsEmpty());
}

TEST_F(ConfigWriterTest, AFileSystemWithoutLocksIsWrittenToAnyway) {
    kernel.fails = "flock";
    kernel.error = ENOLCK;
    EXPECT_THAT(writer.write("text"), IsOk());
    EXPECT_EQ(read_file(target), "text");
    EXPECT_THAT(others(), IsEmpty());
    // There nobody can know whether a temporary is in use.
    write_file(folder / ".SNMP.conf.tmp.aB3xY9", "half-writ");
    EXPECT_THAT(writer.write("next"), IsOk());
    EXPECT_THAT(others(), ElementsAre(".SNMP.conf.tmp.aB3xY9"));
}

TEST_F(ConfigWriterTest, AWriterLeavesTheTemporaryOfALivingOneAloneAndRemovesThatOfAKilledOne) {
    // The other one stands still when its text is all but on the disk.
    auto const stopped_writer = [this](char const* text) {
        auto const child = fork();
        if (child == 0) {
            kernel.while_syncing = [] { std::raise(SIGSTOP); };
            _exit(writer.write(text).has_value() ? 0 : 1);
        }
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, WUNTRACED), child);
        EXPECT_TRUE(WIFSTOPPED(status)) << status;
        return child;
    };
    int status = 0;

    auto const living = stopped_writer("of the living");
    EXPECT_THAT(writer.write("text"), IsOk());
    EXPECT_EQ(read_file(target), "text");
    EXPECT_THAT(others(), testing::SizeIs(1));
    kill(living, SIGCONT);
    EXPECT_EQ(waitpid(living, &status, 0), living);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(read_file(target), "of the living");
    EXPECT_THAT(others(), IsEmpty());

    auto const killed = stopped_writer("of the killed");
    kill(killed, SIGKILL);
    EXPECT_EQ(waitpid(killed, &status, 0), killed);
    EXPECT_EQ(read_file(target), "of the living");
    EXPECT_THAT(others(), testing::SizeIs(1));
    EXPECT_THAT(writer.write("next"), IsOk());
    EXPECT_EQ(read_file(target), "next");
    EXPECT_THAT(others(), IsEmpty());
}

TEST_F(ConfigWriterTest, WhileTwoProcessesWriteAReaderSeesOneWholeText) {
    auto const whole_text = [](char letter) { return std::string(60'000, letter); };
    ASSERT_THAT(writer.write(whole_text('0')), IsOk());
    // Each writes its two texts again and again to a disk that is slow, by more than one call.
    auto const start_writer = [&](char first, char second, int rounds) {
        if (fork() == 0) {
            kernel.longest = 25'000;
            kernel.disk_takes = std::chrono::microseconds{300};
            bool all_written = true;
            for (int round = 0; round < rounds; ++round) {
                auto const text = whole_text(round % 2 == 0 ? first : second);
                all_written = ConfigWriter{target}.write(text).has_value() && all_written;
            }
            _exit(all_written ? 0 : 1);
        }
    };
    constexpr int rounds = 400;
    start_writer('a', 'b', rounds);
    start_writer('y', 'z', rounds);
    int running = 2;
    int failed = 0;
    std::map<char, int> texts_read;
    int torn = 0;
    while (running > 0) {
        auto const text = read_file(target);
        if (text.empty() || text != whole_text(text.front())) {
            ++torn;
        } else {
            ++texts_read[text.front()];
        }
        int status = 0;
        if (waitpid(-1, &status, WNOHANG) > 0) {
            --running;
            failed += status == 0 ? 0 : 1;
        }
    }
    EXPECT_EQ(torn, 0);
    EXPECT_EQ(failed, 0) << "writers";
    EXPECT_GT(texts_read['a'] + texts_read['b'], 0);
    EXPECT_GT(texts_read['y'] + texts_read['z'], 0);
    EXPECT_THAT(others(), IsEmpty());
}

using ConfigWriterDeathTest = ConfigWriterTest;

TEST_F(ConfigWriterDeathTest, AProcessKilledAtAnyStepLeavesTheOldTextAndTheNextWriteCleansUp) {
    for (auto const* const step : {"mkostemp", "flock", "fchmod", "write", "fdatasync", "rename"}) {
        write_file(target, "old");
        auto const die = [&] {
            kernel.kills = step;
            std::ignore = writer.write("half-written");
        };
        EXPECT_EXIT(die(), testing::KilledBySignal(SIGKILL), "") << step;
        EXPECT_EQ(read_file(target), "old") << step;
        EXPECT_EQ(others().size(), std::string_view{"mkostemp"} == step ? 0U : 1U) << step;

        EXPECT_THAT(writer.write("new"), IsOk()) << step;
        EXPECT_EQ(read_file(target), "new") << step;
        EXPECT_THAT(names_in(folder.path()), ElementsAre("SNMP.conf")) << step;
    }
}

TEST_F(ConfigWriterTest, AProcessKilledAtAnySystemCallLeavesTheOldTextOrTheNewOne) {
    if (!processes_can_be_traced()) {
        GTEST_SKIP() << "no process can be traced here";
    }
    std::string const old_text(9000, 'o');
    std::string const new_text(70000, 'n');
    kernel.longest = 30000; // so that the text takes several calls
    int stop = 0;
    int kept = 0;
    for (bool killed = true; killed; ++stop) {
        ASSERT_THAT(writer.write(old_text), IsOk());
        killed = kill_at_stop(stop, [&] { std::ignore = writer.write(new_text); });
        auto const text = read_file(target);
        ASSERT_TRUE(text == new_text || (killed && text == old_text)) << "killed at stop " << stop;
        kept += text == old_text ? 1 : 0;
        ASSERT_THAT(writer.write("next"), IsOk()) << "killed at stop " << stop;
        ASSERT_EQ(read_file(target), "next");
        ASSERT_THAT(names_in(folder.path()), ElementsAre("SNMP.conf")) << "killed at stop " << stop;
    }
    // Nine calls of its own at least, each with an entry and an exit; what follows the renaming keeps
    // nothing.
    EXPECT_GE(stop, 18);
    EXPECT_GE(kept, 16);
}

TEST_F(ConfigWriterTest, AFailingStepIsNamedAndLeavesEverythingAsItWas) {
    struct Case {
        char const* call;
        int error;
        char const* step;
        char const* reason;
    };
    constexpr Case cases[] = {
        {"mkostemp", EACCES, "create", "Permission denied"},
        {"mkostemp", EROFS, "create", "Read-only file system"},
        {"mkostemp", EMFILE, "create", "Too many open files"},
        {"mkostemp", ENOSPC, "create", "No space left on device"},
        {"fchmod", EPERM, "set the mode of", "Operation not permitted"},
        {"write", ENOSPC, "write", "No space left on device"},
        {"write", EIO, "write", "Input/output error"},
        {"fdatasync", EIO, "bring to the disk", "Input/output error"},
        {"fdatasync", EDQUOT, "bring to the disk", "Disk quota exceeded"},
        {"rename", EACCES, "rename", "Permission denied"},
    };
    write_file(target, "old");
    for (auto const& [call, error, step, reason] : cases) {
        kernel.fails = call;
        kernel.error = error;
        EXPECT_THAT(writer.write("new"), IsError(Error::CommonError, message(step, reason)));
        EXPECT_EQ(read_file(target), "old") << call;
        EXPECT_THAT(names_in(folder.path()), ElementsAre("SNMP.conf")) << call;
    }
    kernel.fails.clear();
    EXPECT_THAT(writer.write("new"), IsOk());
}

TEST_F(ConfigWriterTest, InterruptedCallsAreRepeated) {
    for (auto const* const call : {"mkostemp", "write", "fdatasync"}) {
        kernel.fails = call;
        kernel.error = EINTR;
        kernel.only_once = true;
        EXPECT_THAT(writer.write(call), IsOk());
        EXPECT_EQ(read_file(target), call);
        EXPECT_EQ(kernel.fails, "") << call << " was not called";
    }
}

TEST_F(ConfigWriterTest, AWriteThatTakesOnlyAPartIsContinued) {
    kernel.longest = 7;
    std::string text;
    for (int line = 0; line < 100; ++line) {
        text += "line " + std::to_string(line) + "\n";
    }
    EXPECT_THAT(writer.write(text), IsOk());
    EXPECT_EQ(read_file(target), text);
}

TEST_F(ConfigWriterTest, AFileLargerThanTheProcessMayWriteIsAnError) {
    write_file(target, "old");
    auto* const before = std::signal(SIGXFSZ, SIG_IGN);
    rlimit old_limit{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old_limit), 0);
    rlimit const small{.rlim_cur = 100'000, .rlim_max = old_limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    auto const result = writer.write(std::string(3'000'000, 'x'));
    setrlimit(RLIMIT_FSIZE, &old_limit);
    std::ignore = std::signal(SIGXFSZ, before);

    EXPECT_THAT(result, IsError(Error::CommonError, message("write", "File too large")));
    EXPECT_EQ(read_file(target), "old");
    EXPECT_THAT(names_in(folder.path()), ElementsAre("SNMP.conf"));
}

TEST_F(ConfigWriterTest, AMissingFolderIsAnErrorAndIsNotMade) {
    auto const path = (folder / "missing/x.conf").string();
    EXPECT_THAT(ConfigWriter{path}.write("text"),
                IsError(Error::CommonError, "Cannot write \"" + path +
                                                "\": failed to create its temporary file: No such file or "
                                                "directory"));
    EXPECT_THAT(names_in(folder.path()), IsEmpty());
}

TEST_F(ConfigWriterTest, AFileInThePlaceOfTheFolderIsAnError) {
    write_file(folder / "file", "text");
    EXPECT_THAT(ConfigWriter{folder / "file/x.conf"}.write("text"),
                IsError(Error::CommonError, HasSubstr("Not a directory")));
}

TEST_F(ConfigWriterTest, ATargetThatIsAFolderIsAnError) {
    fs::create_directory(target);
    EXPECT_THAT(writer.write("text"), IsError(Error::CommonError, message("rename", "Is a directory")));
    EXPECT_TRUE(fs::is_directory(target));
    EXPECT_THAT(names_in(folder.path()), ElementsAre("SNMP.conf"));
}

TEST_F(ConfigWriterTest, ATargetThatNamesNoFileIsAnError) {
    for (auto const* const name : {"", ".", "..", "below/"}) {
        auto const path = folder.path().string() + "/" + name;
        EXPECT_THAT(ConfigWriter{path}.write("text"), IsError(Error::CommonError, HasSubstr(path))) << path;
        EXPECT_THAT(names_in(folder.path()), IsEmpty()) << path;
    }
}

TEST_F(ConfigWriterTest, ANameTooLongForItsTemporaryIsAnError) {
    EXPECT_THAT(ConfigWriter{folder / std::string(244, 'n')}.write("text"),
                IsError(Error::CommonError, HasSubstr("File name too long")));
    EXPECT_THAT(ConfigWriter{folder / std::string(243, 'n')}.write("text"), IsOk());
}

TEST_F(ConfigWriterTest, NoDescriptorIsLeftOpen) {
    auto const count = [] { return names_in("/proc/self/fd").size(); };
    auto const before = count();
    for (auto const* const call : {"", "mkostemp", "flock", "fchmod", "write", "fdatasync", "rename"}) {
        kernel.fails = call;
        kernel.error = EIO;
        std::ignore = writer.write(call); // its result is another test's business
        EXPECT_EQ(count(), before) << call;
    }
}

TEST_F(ConfigWriterTest, AReaderAlwaysSeesOneWholeText) {
    auto const whole_text = [](int round) {
        return std::string(static_cast<std::size_t>(round % 7 * 3000 + 1),
                           static_cast<char>('a' + round % 26));
    };
    ASSERT_THAT(writer.write(whole_text(0)), IsOk());
    std::set<std::string> whole;
    for (int round = 0; round < 7 * 26; ++round) {
        whole.insert(whole_text(round));
    }
    std::atomic<bool> over = false;
    std::atomic<std::size_t> texts_read = 0;
    std::thread reader{[&] {
        while (!over) {
            auto const text = read_file(target);
            ASSERT_TRUE(whole.contains(text)) << text.size() << " bytes: " << text.substr(0, 80);
            ++texts_read;
        }
    }};
    for (int round = 1; round <= 2000; ++round) {
        ASSERT_THAT(writer.write(whole_text(round)), IsOk());
    }
    EXPECT_TRUE(test::wait_until([&] { // however slow the reader is
        EXPECT_THAT(writer.write(whole_text(2000)), IsOk());
        return texts_read > 100;
    }));
    over = true;
    reader.join();
    EXPECT_EQ(read_file(target), whole_text(2000));
}

} // namespace
} // namespace xpon::config_writer
