#pragma once

#include <filesystem>
#include <functional>

#include <sys/types.h>

#include "core/result.hpp"
#include "core/unique_fd.hpp"

namespace xpon::cfgdb {

/// What could not be done with a file or folder, and the system's reason.
core::ErrorPayload system_failure(std::filesystem::path const& path, char const* what, int reason);

std::filesystem::path database_path(std::filesystem::path const& folder);
std::filesystem::path log_path(std::filesystem::path const& database);

/// Which files form the database: the file itself, its log and the log's index. All zeros for a file that
/// does not exist.
struct FileIdentities {
    struct Identity {
        dev_t device;
        ino_t inode;
        bool operator==(Identity const&) const = default;
    };
    Identity database{};
    Identity log{};
    Identity index{};
    bool operator==(FileIdentities const&) const = default;
};

/// The files that are at these paths now.
FileIdentities identities(std::filesystem::path const& database);

/// The file that every writer has open for writing while it commits. Closing it, which the kernel also does
/// for a killed process, wakes the feeds.
std::filesystem::path doorbell_path(std::filesystem::path const& folder);

/// Creates the folder if it does not exist: mode 2770, group xpon if that exists.
core::Result<void> make_folder(std::filesystem::path const& path);

/// Lets one process at a time create or replace the database, as long as the descriptor is open.
core::Result<core::UniqueFd> take_turns(std::filesystem::path const& folder);

/// What make_file does with an existing file.
enum class Existing { Keep, Replace };

/// Creates or replaces a file. Owner and group may read and write it, everybody may read it if everybody may
/// read the folder, whatever the umask. The file appears complete, as `fill` leaves it, or not at all, even
/// if several processes do this at once.
core::Result<void> make_file(std::filesystem::path const& path,
                             std::function<core::Result<void>(std::filesystem::path const&)> const& fill,
                             Existing existing = Existing::Keep);

/// Removes the log and its index. Only for a log whose database no longer exists.
void remove_log(std::filesystem::path const& database);

/// Flushes the folder to disk, so that its changes survive a power cut.
void sync_folder(std::filesystem::path const& folder);

/// Opens the doorbell for writing; creates it if it does not exist. Fails if anything but a regular file is
/// in its place: opening that could block, or write elsewhere.
core::Result<core::UniqueFd> open_doorbell(std::filesystem::path const& folder);

/// Creates the doorbell if it does not exist.
core::Result<void> make_doorbell(std::filesystem::path const& folder);

} // namespace xpon::cfgdb
