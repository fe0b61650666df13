#pragma once

#include <filesystem>
#include <optional>
#include <vector>

#include <sys/types.h>

#include "core/unique_fd.hpp"

namespace xpon::ipc {

/// The folder of the bus, owned by one broker at a time: its lock is held as long as this lives.
class BusFolder {
  public:
    /// Creates the folder if it is missing (mode 2750, so its group may enter) and locks it. Anything else with
    /// the name of the lock file is removed, see `make_room`. New files belong to `owner_group`, if that is
    /// given and root runs the process. Throws std::runtime_error naming path and reason, or the process of
    /// the broker that already serves the folder.
    BusFolder(std::filesystem::path folder_path, std::optional<gid_t> owner_group);
    /// Removes the sockets that are still the adopted ones, then unlocks.
    ~BusFolder();

    BusFolder(BusFolder const&) = delete;
    BusFolder& operator=(BusFolder const&) = delete;

    std::filesystem::path const& path() const { return folder; }

    /// Makes room for a socket of this name: removes what is there, and moves a folder that is not empty to a
    /// new name beside it. Returns the path. Throws std::runtime_error naming path, reason and cure.
    std::filesystem::path make_room(char const* name) const;

    /// Registers a socket that was just created in the folder. Throws std::runtime_error.
    void adopt(std::filesystem::path const& socket);

  private:
    struct Socket {
        std::filesystem::path path;
        dev_t device;
        ino_t inode;
    };

    void create();
    void lock();
    void give_to_group(std::filesystem::path const& path) const;

    std::filesystem::path folder;
    std::optional<gid_t> group;
    core::UniqueFd lock_file;
    std::vector<Socket> sockets;
};

/// The group of this name, if there is one.
std::optional<gid_t> group_named(char const* name);

} // namespace xpon::ipc
