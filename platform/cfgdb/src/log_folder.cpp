#include "xpon/cfgdb/log_folder.hpp"

#include <cerrno>
#include <system_error>
#include <vector>

#include <sys/stat.h>

#include <fmt/format.h>

#include "core/reason.hpp"

namespace xpon::cfgdb {

namespace {

/// Why users other than root control what is in one folder; nothing if only root does.
std::optional<std::string> flaw_of(std::filesystem::path const& folder, struct stat const& status) {
    struct stat root{};
    std::ignore = lstat("/", &root); // its owner can do what root can, even in a user namespace
    if (!S_ISDIR(status.st_mode)) {
        return fmt::format("{} is not a folder", folder.string());
    }
    if (status.st_uid != 0 && status.st_uid != root.st_uid) {
        return fmt::format("{} belongs to user {}", folder.string(), status.st_uid);
    }
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return fmt::format("users other than root can write to {}", folder.string());
    }
    return std::nullopt;
}

} // namespace

std::optional<std::string> log_folder_flaw(std::filesystem::path const& folder) {
    std::vector<std::filesystem::path> left; // the next one last
    auto const go = [&left](std::filesystem::path const& path) {
        auto const parts = path.relative_path();
        std::vector<std::filesystem::path> const forward{parts.begin(), parts.end()};
        left.insert(left.end(), forward.rbegin(), forward.rend());
    };
    go(folder);
    std::filesystem::path here{"/"};
    constexpr int most_links = 40; // as for the kernel
    for (int links = 0; links <= most_links;) {
        struct stat status{};
        if (lstat(here.c_str(), &status) != 0) {
            return errno == ENOENT
                       ? std::nullopt
                       : std::optional{fmt::format("{}: {}", here.string(), core::reason_of(errno))};
        }
        if (S_ISLNK(status.st_mode)) {
            ++links;
            std::error_code failed;
            auto const target = std::filesystem::read_symlink(here, failed);
            go(target);
            here = target.is_absolute() ? "/" : here.parent_path();
            continue;
        }
        if (auto flaw = flaw_of(here, status)) {
            return flaw;
        }
        if (left.empty()) {
            return std::nullopt;
        }
        auto const next = std::move(left.back());
        left.pop_back();
        here = next == ".." ? here.parent_path() : next.empty() || next == "." ? here : here / next;
    }
    return fmt::format("{}: too many links", folder.string());
}

} // namespace xpon::cfgdb
