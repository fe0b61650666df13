// A file to be imported: its JSON, then its paths and values as a transaction takes them.

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "settings_file.hpp"
#include "xpon/cfgdb/transaction.hpp"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    using namespace xpon;
    auto const parsed = logctl::parse_settings_file({reinterpret_cast<char const*>(data), size});
    if (parsed.has_error()) {
        auto const& info = parsed.error().info;
        if (!info || info->text().empty()) {
            std::abort();
        }
        return 0;
    }
    cfgdb::Transaction transaction;
    bool valid = true;
    for (auto const& [path, value] : parsed.value()) {
        valid = cfgdb::find_setting(path) != nullptr && transaction.set(path, value).has_value() && valid;
    }
    if (!valid) {
        return 0;
    }
    auto const again = logctl::parse_settings_file(logctl::settings_file(parsed.value()));
    if (!again.has_value() || again.value() != parsed.value()) {
        std::abort();
    }
    return 0;
}
