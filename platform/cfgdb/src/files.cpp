#include "files.hpp"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include <fcntl.h>
#include <grp.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/failure.hpp"
#include "core/reason.hpp"
#include "core/uninterrupted.hpp"

namespace xpon::cfgdb {

namespace {

using core::Error;
using core::fail;

std::filesystem::path index_path(std::filesystem::path const& database) {
    return database.string() + "-shm";
}

char const* kind_of(mode_t mode) {
    switch (mode & S_IFMT) {
    case S_IFDIR:
        return "a folder";
    case S_IFIFO:
        return "a FIFO";
    case S_IFLNK:
        return "a symbolic link";
    case S_IFSOCK:
        return "a socket";
    default:
        return "a device";
    }
}

void give_to_group(std::filesystem::path const& folder) {
    if (geteuid() != 0) {
        return;
    }
    if (auto const* const group = getgrnam("xpon")) {
        // After a failure only root can use the folder, which is safe.
        std::ignore = chown(folder.c_str(), static_cast<uid_t>(-1), group->gr_gid);
    }
}

mode_t file_mode(std::filesystem::path const& folder) {
    struct stat status{};
    bool const open_to_all = stat(folder.c_str(), &status) == 0 && (status.st_mode & S_IROTH) != 0;
    return open_to_all ? 0664 : 0660;
}

} // namespace

std::filesystem::path database_path(std::filesystem::path const& folder) {
    return folder / "running.db";
}

std::filesystem::path log_path(std::filesystem::path const& database) {
    return database.string() + "-wal";
}

std::filesystem::path doorbell_path(std::filesystem::path const& folder) {
    return folder / "running.db.doorbell";
}

core::ErrorPayload system_failure(std::filesystem::path const& path, char const* what, int reason) {
    bool const refused = reason == EACCES || reason == EPERM || reason == EROFS;
    return fail(refused ? Error::NoAccess : Error::CommonError, "{}: {} ({})", path.string(), what,
                core::reason_of(reason));
}

void sync_folder(std::filesystem::path const& folder) {
    core::UniqueFd const opened{open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    // Some file systems do not support this; they do not need it.
    std::ignore = fsync(opened.get());
}

FileIdentities identities(std::filesystem::path const& database) {
    auto const identity = [](std::filesystem::path const& path) {
        struct stat status{};
        bool const there = stat(path.c_str(), &status) == 0;
        return there ? FileIdentities::Identity{status.st_dev, status.st_ino} : FileIdentities::Identity{};
    };
    return {identity(database), identity(log_path(database)), identity(index_path(database))};
}

void remove_log(std::filesystem::path const& database) {
    unlink(log_path(database).c_str());
    unlink(index_path(database).c_str());
}

core::Result<void> make_folder(std::filesystem::path const& path) {
    auto const folder = path.has_filename() ? path : path.parent_path(); // without a final slash
    std::error_code failed;
    std::filesystem::create_directories(folder.parent_path(), failed);
    if (mkdir(folder.c_str(), 0770) == 0) {
        give_to_group(folder);
        if (chmod(folder.c_str(), 02770) != 0) {
            return system_failure(folder, "cannot set the folder's mode", errno);
        }
    } else if (errno != EEXIST) {
        return system_failure(folder, "cannot create the folder",
                              errno == ENOENT && failed ? failed.value() : errno);
    }
    return core::success();
}

core::Result<core::UniqueFd> take_turns(std::filesystem::path const& folder) {
    core::UniqueFd opened{open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    if (!opened || core::uninterrupted([&] { return flock(opened.get(), LOCK_EX); }) != 0) {
        return system_failure(folder, "cannot be locked", errno);
    }
    return opened;
}

core::Result<void> make_file(std::filesystem::path const& path,
                             std::function<core::Result<void>(std::filesystem::path const&)> const& fill,
                             Existing existing) {
    auto const folder = path.parent_path();
    auto temporary = path.string() + ".XXXXXX";
    core::UniqueFd file{mkostemp(temporary.data(), O_CLOEXEC)};
    if (!file) {
        return system_failure(path, "cannot be made", errno);
    }
    auto const made = [&]() -> core::Result<void> {
        if (fchmod(file.get(), file_mode(folder)) != 0) {
            return system_failure(path, "cannot set its mode", errno);
        }
        file.reset();
        OUTCOME_TRY(fill(temporary));
        bool const placed = existing == Existing::Replace
                                ? rename(temporary.c_str(), path.c_str()) == 0
                                : link(temporary.c_str(), path.c_str()) == 0 || errno == EEXIST;
        if (!placed) {
            return system_failure(path, "cannot be made", errno);
        }
        return core::success();
    }();
    unlink(temporary.c_str());
    sync_folder(folder);
    return made;
}

core::Result<core::UniqueFd> open_doorbell(std::filesystem::path const& folder) {
    auto const path = doorbell_path(folder);
    auto const open_existing = [&path] {
        return core::UniqueFd{open(path.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)};
    };
    auto doorbell = open_existing();
    if (!doorbell && errno == ENOENT) {
        OUTCOME_TRY(make_doorbell(folder));
        doorbell = open_existing();
    }
    int const reason = errno;
    struct stat status{};
    // A file that is not regular may open or fail with an unhelpful reason, so its kind decides.
    bool const known = (doorbell ? fstat(doorbell.get(), &status) : lstat(path.c_str(), &status)) == 0;
    if (known && !S_ISREG(status.st_mode)) {
        return fail(Error::InvalidState,
                    "{}: not a regular file but {}; remove it; the next change creates it again",
                    path.string(), kind_of(status.st_mode));
    }
    if (!doorbell) {
        return system_failure(path, "cannot be opened", reason);
    }
    return doorbell;
}

core::Result<void> make_doorbell(std::filesystem::path const& folder) {
    return make_file(doorbell_path(folder), [](auto const&) { return core::success(); });
}

} // namespace xpon::cfgdb
