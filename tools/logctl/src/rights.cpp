#include "rights.hpp"

#include <array>
#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <fmt/format.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/failure.hpp"
#include "core/unique_fd.hpp"

namespace xpon::logctl {

namespace {

using core::Error;
using core::fail;

/// Only names it: neither a link is followed nor a device opened, and SQLite's locks stay.
core::UniqueFd named(std::filesystem::path const& path) {
    return core::UniqueFd{open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC)};
}

std::string name_of(gid_t group) {
    auto const* const entry = getgrgid(group);
    return entry != nullptr ? entry->gr_name : std::to_string(group);
}

constexpr std::array file_names{"running.db", "running.db-wal", "running.db-shm", "running.db.doorbell"};

} // namespace

std::vector<WrongRights> wrong_rights(std::filesystem::path const& database) {
    std::vector<WrongRights> wrong;
    auto const* const entry = getgrnam("xpon");
    if (entry == nullptr) {
        return wrong;
    }
    auto const group = entry->gr_gid;
    constexpr mode_t permissions = 07777;
    auto const look = [&](std::filesystem::path const& path, mode_t mode) {
        struct stat status{};
        if (fstatat(named(path).get(), "", &status, AT_EMPTY_PATH) != 0) {
            return;
        }
        if (status.st_gid != group || (status.st_mode & permissions) != mode) {
            wrong.push_back(
                {path,
                 fmt::format("belongs to group {}, mode {:04o}; it must be group xpon, mode {:04o}",
                             name_of(status.st_gid), status.st_mode & permissions, mode),
                 group, mode});
        }
    };
    struct stat folder{};
    if (stat(database.c_str(), &folder) != 0) {
        return wrong;
    }
    bool const open_to_all = (folder.st_mode & S_IROTH) != 0;
    look(database, open_to_all ? 02775 : 02770);
    for (auto const* name : file_names) {
        look(database / name, open_to_all ? 0664 : 0660);
    }
    return wrong;
}

core::Result<void> mend(WrongRights const& wrong) {
    auto const file = named(wrong.path);
    struct stat status{};
    auto const failure = [&wrong] {
        return fail(Error::CommonError, "{}: {}", wrong.path.string(),
                    std::generic_category().message(errno));
    };
    if (fstatat(file.get(), "", &status, AT_EMPTY_PATH) != 0) {
        return failure();
    }
    if (!S_ISDIR(status.st_mode) && !(S_ISREG(status.st_mode) && status.st_nlink == 1)) {
        return fail(Error::InvalidState,
                    "{}: neither a folder nor a regular file with one name; inspect and remove it",
                    wrong.path.string());
    }
    if (fchownat(file.get(), "", static_cast<uid_t>(-1), wrong.group, AT_EMPTY_PATH) != 0 ||
        chmod(fmt::format("/proc/self/fd/{}", file.get()).c_str(), wrong.mode) != 0) {
        return failure();
    }
    return core::success();
}

} // namespace xpon::logctl
