// A module's file of log rules, whatever it holds; what could be read of it must format a line.
#include "fuzz/fuzz.hpp"
#include "zlog_file.hpp"

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    using namespace xpon::logger;
    using xpon::fuzz::require;
    std::string_view const text{reinterpret_cast<char const*>(data), size};
    auto const file = read_zlog_file(text);
    for (auto const& problem : file.problems) {
        require(!problem.what.empty(), "a problem is told");
    }
    spdlog::details::log_msg const message{spdlog::source_loc{"folder/file.cpp", 7, "function"}, "category",
                                           spdlog::level::info, "text"};
    int formatted = 0;
    for (auto const& [name, formats] : file.categories) {
        for (auto const& format : formats) {
            if (format && ++formatted <= 100) {
                spdlog::memory_buf_t line;
                format->clone()->format(message, line);
            }
        }
    }
    return 0;
}
