#pragma once

#include <filesystem>

#include "kit/scratch_folder.hpp"

namespace xpon::test {

/// The whole content of a file under test/golden.
inline std::string golden(std::string const& name) {
    return read_file(std::filesystem::path{XPON_GOLDEN_FOLDER} / name);
}

} // namespace xpon::test
