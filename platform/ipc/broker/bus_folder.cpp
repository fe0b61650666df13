#include "broker/bus_folder.hpp"

#include <array>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>
#include <grp.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/reason.hpp"

namespace xpon::ipc {

namespace {

/// Reads `errno`.
std::runtime_error failure(char const* what, std::filesystem::path const& path) {
    return std::runtime_error{fmt::format("{} {}: {}", what, path.string(), core::reason_of(errno))};
}

std::string owner_in(int lock_file) {
    std::array<char, 16> pid{};
    auto const length = pread(lock_file, pid.data(), pid.size(), 0);
    return length > 0
               ? fmt::format(" (process {})", std::string_view{pid.data(), static_cast<std::size_t>(length)})
               : "";
}

struct stat state_of(std::filesystem::path const& path) {
    struct stat state{};
    if (lstat(path.c_str(), &state) != 0) {
        throw failure("cannot examine", path);
    }
    return state;
}

} // namespace

BusFolder::BusFolder(std::filesystem::path folder_path, std::optional<gid_t> owner_group)
  : folder{folder_path.has_filename() ? std::move(folder_path) : folder_path.parent_path()}
  , group{owner_group} {
    create();
    lock();
}

BusFolder::~BusFolder() {
    for (auto const& socket : sockets) {
        struct stat now{};
        if (lstat(socket.path.c_str(), &now) == 0 && now.st_dev == socket.device &&
            now.st_ino == socket.inode) {
            unlink(socket.path.c_str());
        }
    }
}

std::filesystem::path BusFolder::make_room(char const* name) const {
    auto path = folder / name;
    if (unlink(path.c_str()) == 0 || errno == ENOENT || (errno == EISDIR && rmdir(path.c_str()) == 0)) {
        return path;
    }
    // A rename can replace an empty folder.
    auto aside = path.string() + ".XXXXXX";
    if (mkdtemp(aside.data()) == nullptr) {
        throw failure("remove what is in the way:", path);
    }
    if (rename(path.c_str(), aside.c_str()) != 0) {
        auto const reason = failure("remove what is in the way:", path);
        rmdir(aside.c_str());
        throw reason;
    }
    return path;
}

void BusFolder::adopt(std::filesystem::path const& socket) {
    auto const state = state_of(socket);
    sockets.push_back({socket, state.st_dev, state.st_ino});
    give_to_group(socket);
}

void BusFolder::create() {
    std::error_code problem;
    std::filesystem::create_directories(folder.parent_path(), problem);
    if (problem) {
        errno = problem.value();
        throw failure("cannot create the folder", folder.parent_path());
    }
    if (mkdir(folder.c_str(), S_IRWXU) != 0) {
        if (errno == EEXIST) {
            return; // its mode is its owner's choice
        }
        throw failure("cannot create the folder", folder);
    }
    give_to_group(folder);
    // After the group was changed, because that clears the set-group-id bit.
    if (chmod(folder.c_str(), S_ISGID | S_IRWXU | S_IRGRP | S_IXGRP) != 0) {
        throw failure("cannot set the mode of the folder", folder);
    }
}

void BusFolder::lock() {
    auto const path = folder / "lock";
    if (struct stat state{}; lstat(path.c_str(), &state) == 0 && !S_ISREG(state.st_mode)) {
        make_room("lock");
    }
    // Follows no link and does not block on a FIFO, in case one was created meanwhile.
    lock_file.reset(
        open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, S_IRUSR | S_IWUSR));
    if (!lock_file) {
        throw failure("cannot open the lock file", path);
    }
    if (struct stat state{}; fstat(lock_file.get(), &state) != 0 || !S_ISREG(state.st_mode)) {
        throw std::runtime_error{fmt::format("{} is not a regular file; remove it", path.string())};
    }
    if (flock(lock_file.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK) {
            throw std::runtime_error{
                fmt::format("another broker serves {}{}", folder.string(), owner_in(lock_file.get()))};
        }
        throw failure("cannot lock", path);
    }
    auto const pid = std::to_string(getpid());
    if (ftruncate(lock_file.get(), 0) != 0 ||
        pwrite(lock_file.get(), pid.data(), pid.size(), 0) != static_cast<ssize_t>(pid.size())) {
        throw failure("cannot write the lock file", path);
    }
}

void BusFolder::give_to_group(std::filesystem::path const& path) const {
    // EINVAL: a user namespace in which the group has no number.
    if (group && geteuid() == 0 && lchown(path.c_str(), 0, *group) != 0 && errno != EINVAL) {
        throw failure("cannot change the group of", path);
    }
}

std::optional<gid_t> group_named(char const* name) {
    auto const* const entry = getgrnam(name);
    return entry != nullptr ? std::optional{entry->gr_gid} : std::nullopt;
}

} // namespace xpon::ipc
