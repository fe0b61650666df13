#include "xpon/cfgdb/printable.hpp"

#include <algorithm>
#include <iterator>

#include <fmt/format.h>

namespace xpon::cfgdb {

namespace {

std::string escaped(std::string_view text, std::size_t longest, std::string_view also_escaped) {
    std::string out;
    for (char const c : text.substr(0, longest)) {
        if (c >= ' ' && c <= '~' && also_escaped.find(c) == std::string_view::npos) {
            out += c;
        } else {
            fmt::format_to(std::back_inserter(out), "\\x{:02x}", static_cast<unsigned char>(c));
        }
    }
    return out += text.size() > longest ? "..." : "";
}

} // namespace

std::string printable(std::string_view text) {
    return '"' + escaped(text, 100, "\"\\") + '"';
}

std::string plain(std::string_view text) {
    return escaped(text, 300, "");
}

std::string safe(std::string_view text) {
    bool const is_plain = std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
    return is_plain ? std::string{text} : printable(text);
}

} // namespace xpon::cfgdb
