#pragma once

#include <filesystem>
#include <functional>

#include "core/result.hpp"
#include "core/unique_fd.hpp"

namespace xpon::cfgdb {

std::filesystem::path database_path(std::filesystem::path const& folder);

/// The file that every writer has open for writing while it commits: closing it, which the kernel also does
/// for a process that is killed, is what wakes the feeds.
std::filesystem::path doorbell_path(std::filesystem::path const& folder);

/// Makes the folder where there is none: mode 2770, of the group xpon where that exists.
core::Result<void> make_folder(std::filesystem::path const& folder);

/// Makes a file where there is none, readable and writable for owner and group, and readable for everybody if
/// its folder is, whatever the umask. It appears complete, as `fill` leaves it, or not at all, also when
/// several processes do this at once.
core::Result<void> make_file(std::filesystem::path const& path,
                             std::function<core::Result<void>(std::filesystem::path const&)> const& fill);

/// The doorbell, opened for writing; made where there is none.
core::Result<core::UniqueFd> open_doorbell(std::filesystem::path const& folder);

/// Makes the doorbell where there is none.
core::Result<void> make_doorbell(std::filesystem::path const& folder);

} // namespace xpon::cfgdb
