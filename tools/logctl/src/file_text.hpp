#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>

namespace xpon::logctl {

/// The content of a file; nothing if it cannot be read.
inline std::optional<std::string> file_text(std::filesystem::path const& path) {
    std::ifstream file{path, std::ios::binary};
    std::string text{std::istreambuf_iterator<char>{file}, {}};
    return file.is_open() && !file.bad() ? std::optional{std::move(text)} : std::nullopt;
}

} // namespace xpon::logctl
