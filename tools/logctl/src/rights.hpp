#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include <sys/types.h>

#include "core/result.hpp"

namespace xpon::logctl {

/// The database's folder, or one of its files, that members of the group xpon cannot use: made before there
/// was the group, or copied there.
struct WrongRights {
    std::filesystem::path path;
    std::string problem; ///< in words, with what it should be
    gid_t group;         ///< that it should have
    mode_t mode;         ///< that it should have
};

/// What is wrong with the folder and the files of the database; nothing where there is no group xpon.
std::vector<WrongRights> wrong_rights(std::filesystem::path const& database);

/// Gives it the group and the mode that it should have. Fails where that is not permitted, and where it is no
/// folder and no regular file with one name.
core::Result<void> mend(WrongRights const& wrong);

} // namespace xpon::logctl
