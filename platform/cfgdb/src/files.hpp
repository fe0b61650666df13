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

/// Which files are the database: the file itself, its log and the log's index. All zeros for one that is not
/// there.
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

/// What lies at these paths now.
FileIdentities identities(std::filesystem::path const& database);

/// The file that every writer has open for writing while it commits: closing it, which the kernel also does
/// for a process that is killed, is what wakes the feeds.
std::filesystem::path doorbell_path(std::filesystem::path const& folder);

/// Makes the folder where there is none: mode 2770, of the group xpon where that exists.
core::Result<void> make_folder(std::filesystem::path const& folder);

/// Lets one process at a time make or replace the database; until it is destroyed.
core::Result<core::UniqueFd> take_turns(std::filesystem::path const& folder);

/// What make_file does with a file that is there already.
enum class Existing { Keep, Replace };

/// Makes a file where there is none, or in the place of another one, readable and writable for owner and
/// group, and readable for everybody if its folder is, whatever the umask. It appears complete, as `fill`
/// leaves it, or not at all, also when several processes do this at once.
core::Result<void> make_file(std::filesystem::path const& path,
                             std::function<core::Result<void>(std::filesystem::path const&)> const& fill,
                             Existing existing = Existing::Keep);

/// Removes the log and its index. Only for one that belongs to a database which is no longer there.
void remove_log(std::filesystem::path const& database);

/// Makes what happened in the folder last through a power cut.
void sync_folder(std::filesystem::path const& folder);

/// The doorbell, opened for writing; made where there is none. Fails where anything but a regular file is in
/// its place: opening that could wait, or write elsewhere.
core::Result<core::UniqueFd> open_doorbell(std::filesystem::path const& folder);

/// Makes the doorbell where there is none.
core::Result<void> make_doorbell(std::filesystem::path const& folder);

} // namespace xpon::cfgdb
