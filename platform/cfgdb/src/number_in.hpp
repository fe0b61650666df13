#pragma once

#include <charconv>
#include <optional>
#include <string_view>

namespace xpon::cfgdb {

/// The number that the whole text is in decimal; nothing if it is none or does not fit.
template <class T>
std::optional<T> number_in(std::string_view text) {
    T number = 0;
    char const* const begin = text.data();
    char const* const end = begin + text.size();
    auto const [rest, error] = std::from_chars(begin, end, number);
    return error == std::errc{} && rest == end ? std::optional{number} : std::nullopt;
}

} // namespace xpon::cfgdb
