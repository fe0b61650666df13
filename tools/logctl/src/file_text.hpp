#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>

namespace xpon::logctl {

/// The content of a file from a place on; nothing if it cannot be read.
inline std::optional<std::string> file_text(std::filesystem::path const& path, std::uintmax_t begin = 0) {
    std::ifstream file{path, std::ios::binary};
    file.seekg(static_cast<std::streamoff>(begin));
    try {
        std::string text{std::istreambuf_iterator<char>{file}, {}};
        return file.is_open() && !file.bad() ? std::optional{std::move(text)} : std::nullopt;
    } catch (std::ios_base::failure const&) { // such as the file of a process that ends
        return std::nullopt;
    }
}

} // namespace xpon::logctl
