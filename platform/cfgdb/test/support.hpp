#pragma once

#include <array>
#include <cerrno>
#include <chrono>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "core/unique_fd.hpp"
#include "kit/matchers.hpp"
#include "kit/raw_database.hpp"
#include "kit/scratch_folder.hpp"
#include "kit/wait_readable.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"
#include "xpon/cfgdb/syslog_settings.hpp"
#include "xpon/cfgdb/transaction.hpp"

namespace xpon::cfgdb {

using test::RawDatabase;

inline constexpr unsigned short all_zero_key[3] = {0, 0, 0};

/// A folder for a database, which is not made yet.
class DatabaseFolder : public testing::Test {
  protected:
    test::ScratchFolder scratch;
    std::filesystem::path folder = scratch / "db";
    std::filesystem::path file = folder / "running.db";

    /// "path=value" of every row.
    std::vector<std::string> stored() const {
        std::vector<std::string> all;
        auto const rows = stored_settings(folder).value();
        for (auto const& row : rows) {
            all.push_back(row.path + "=" + row.value);
        }
        return all;
    }
};

/// Whether the call returns -1 with EINVAL, as every plain function does for a wrong argument.
template <class Call>
bool is_refused(Call const& call) {
    errno = 0;
    return call() == -1 && errno == EINVAL;
}

/// The permissions of a file.
inline mode_t mode_of(std::filesystem::path const& path) {
    struct stat status{};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777U;
}

/// The syslog.rsh.level that the reader gives; -1 if it fails.
inline int rsh_level(CfgDbWrapper const& cfgdb) {
    SyslogRshDest rsh{};
    return getRunDb_CommonGCfg_logging_syslog_rsh(cfgdb.db(), &rsh, all_zero_key) == 0 ? rsh.level : -1;
}

/// A child process that runs `body` and ends with its value as exit status. To be made while this process has
/// no database open: SQLite's own notes about open files must not be inherited.
class Child {
  public:
    explicit Child(std::function<int()> const& body)
      : pid{fork()} {
        if (pid == 0) {
            _exit(body());
        }
    }
    ~Child() {
        if (pid > 0) {
            kill(pid, SIGKILL);
            status();
        }
    }
    Child(Child const&) = delete;
    Child& operator=(Child const&) = delete;

    /// Waits for its end; 128 + n if signal n ended it.
    int status() {
        int status = 0;
        EXPECT_EQ(waitpid(std::exchange(pid, -1), &status, 0) > 0, true);
        return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    }

  private:
    pid_t pid;
};

/// Lets one process tell another to go on.
class Signal {
  public:
    Signal() {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        reading.reset(ends[0]);
        writing.reset(ends[1]);
    }
    void give() const { EXPECT_EQ(write(writing.get(), "x", 1), 1); }
    bool take() const {
        char c = 0;
        return read(reading.get(), &c, 1) == 1;
    }

  private:
    core::UniqueFd reading;
    core::UniqueFd writing;
};

/// Whether the descriptor is readable already.
inline bool is_readable(int fd) {
    return test::wait_readable(fd, std::chrono::milliseconds{0});
}

/// What is sent to syslog(3) while it lives.
class CapturedSyslog {
  public:
    CapturedSyslog() {
        openlog("test", LOG_PERROR, LOG_USER);
        testing::internal::CaptureStderr();
    }
    ~CapturedSyslog() {
        std::ignore = lines();
        openlog("test", 0, LOG_USER);
    }
    CapturedSyslog(CapturedSyslog const&) = delete;
    CapturedSyslog& operator=(CapturedSyslog const&) = delete;

    std::string lines() {
        if (std::exchange(capturing, false)) {
            captured = testing::internal::GetCapturedStderr();
        }
        return captured;
    }

  private:
    bool capturing = true;
    std::string captured;
};

/// A transaction that sets these.
inline Transaction wish(std::vector<std::pair<std::string, std::string>> const& settings) {
    Transaction transaction;
    for (auto const& [pattern, value] : settings) {
        EXPECT_THAT(transaction.set(pattern, value), test::IsOk());
    }
    return transaction;
}

/// Sets and commits; the changes as "path: old -> new".
inline std::vector<std::string> change(std::filesystem::path const& folder,
                                       std::vector<std::pair<std::string, std::string>> const& settings,
                                       std::string const& author = "operator") {
    auto const changes = wish(settings).commit(folder, author);
    EXPECT_THAT(changes, test::IsOk());
    std::vector<std::string> texts;
    for (auto const& [setting, old_value, new_value] : changes.value()) {
        texts.push_back(fmt::format("{}: {} -> {}", setting->path, old_value, new_value));
    }
    return texts;
}

} // namespace xpon::cfgdb
