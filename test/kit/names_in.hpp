#pragma once

#include <filesystem>
#include <set>
#include <string>

namespace xpon::test {

/// The names of what a folder holds.
inline std::set<std::string> names_in(std::filesystem::path const& folder) {
    std::set<std::string> names;
    for (auto const& entry : std::filesystem::directory_iterator{folder}) {
        names.insert(entry.path().filename());
    }
    return names;
}

} // namespace xpon::test
