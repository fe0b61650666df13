#pragma once

#include <charconv>
#include <optional>
#include <string_view>

namespace xpon::logctl {

/// The number that a text is, and nothing else.
template <class T>
std::optional<T> number_in(std::string_view text) {
    T value{};
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc{} && end == text.data() + text.size() ? std::optional{value} : std::nullopt;
}

} // namespace xpon::logctl
