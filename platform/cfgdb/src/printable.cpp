#include "xpon/cfgdb/printable.hpp"

#include <iterator>

#include <fmt/format.h>

namespace xpon::cfgdb {

std::string printable(std::string_view text) {
    constexpr std::size_t longest = 100;
    std::string out = "\"";
    for (char const c : text.substr(0, longest)) {
        bool const plain = c >= ' ' && c <= '~' && c != '"' && c != '\\';
        if (plain) {
            out += c;
        } else {
            fmt::format_to(std::back_inserter(out), "\\x{:02x}", static_cast<unsigned char>(c));
        }
    }
    out += text.size() > longest ? "...\"" : "\"";
    return out;
}

} // namespace xpon::cfgdb
