#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace xpon::test {

/// An empty folder of the test's own, removed with everything in it.
class ScratchFolder {
  public:
    explicit ScratchFolder(std::filesystem::path const& parent = std::filesystem::temp_directory_path()) {
        auto pattern = (parent / "log-config-test.XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("no scratch folder: " + pattern);
        }
        folder = pattern;
    }
    ~ScratchFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
    ScratchFolder(ScratchFolder const&) = delete;
    ScratchFolder& operator=(ScratchFolder const&) = delete;

    std::filesystem::path const& path() const { return folder; }
    std::filesystem::path operator/(std::string const& name) const { return folder / name; }

  private:
    std::filesystem::path folder;
};

/// The whole content of a file; fails the program if it cannot be read.
inline std::string read_file(std::filesystem::path const& path) {
    std::ifstream file{path, std::ios::binary};
    if (!file) {
        throw std::runtime_error("cannot read " + path.string());
    }
    return {std::istreambuf_iterator<char>{file}, {}};
}

inline void write_file(std::filesystem::path const& path, std::string const& text) {
    std::ofstream{path, std::ios::binary} << text;
}

} // namespace xpon::test
