// Stands in for the fuzzer in ordinary builds: gives the target every file of the folders named.

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

int main(int argc, char** argv) {
    int files = 0;
    std::vector<std::string> const folders{argv + 1, argv + argc};
    for (auto const& folder : folders) {
        for (auto const& entry : std::filesystem::directory_iterator{folder}) {
            std::ifstream file{entry.path(), std::ios::binary};
            std::string const text{std::istreambuf_iterator<char>{file}, {}};
            LLVMFuzzerTestOneInput(reinterpret_cast<std::uint8_t const*>(text.data()), text.size());
            ++files;
        }
    }
    std::printf("%d inputs\n", files);
    return files > 0 ? 0 : 1;
}
