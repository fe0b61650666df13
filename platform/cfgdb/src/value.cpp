#include <algorithm>
#include <array>
#include <optional>

#include <arpa/inet.h>

#include "core/failure.hpp"
#include "number_in.hpp"
#include "xpon/cfgdb/nearest.hpp"
#include "xpon/cfgdb/printable.hpp"
#include "xpon/cfgdb/settings.hpp"

namespace xpon::cfgdb {

namespace {

using core::Error;
using core::fail;

constexpr std::array<std::string_view, 6> level_names{"critical", "error", "warning",
                                                      "notice",   "info",  "debug"};

bool is_folder(std::string_view text) {
    constexpr std::size_t longest = 31; // of the 32 bytes in the record one is the terminating zero
    auto const plain = [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' ||
               c == '_' || c == '/' || c == '-';
    };
    return text.starts_with('/') && text.ends_with('/') && text.size() <= longest &&
           std::ranges::all_of(text, plain);
}

bool is_address(std::string const& text) {
    in_addr address{};
    std::array<char, INET_ADDRSTRLEN> canonical{};
    return inet_pton(AF_INET, text.c_str(), &address) == 1 &&
           inet_ntop(AF_INET, &address, canonical.data(), canonical.size()) != nullptr &&
           text == canonical.data();
}

std::optional<Value> value_in(Kind kind, std::string_view text) {
    switch (kind) {
    case Kind::Folder:
    case Kind::Address:
        return Value{std::string{text}};
    case Kind::Level:
        if (auto const* const name = std::ranges::find(level_names, text); name != level_names.end()) {
            return Value{name - level_names.begin()};
        }
        break;
    case Kind::Size:
    case Kind::Port:
        break;
    }
    return number_in<std::int64_t>(text);
}

} // namespace

bool is_allowed(Kind kind, Value const& value) {
    auto const* const text = std::get_if<std::string>(&value);
    auto const* const number = std::get_if<std::int64_t>(&value);
    auto const within = [number](std::int64_t least, std::int64_t most) {
        return number != nullptr && *number >= least && *number <= most;
    };
    switch (kind) {
    case Kind::Level:
        return within(0, std::ssize(level_names) - 1);
    case Kind::Size:
        return within(65536, 1073741824);
    case Kind::Port:
        return within(1, 65535);
    case Kind::Folder:
        return text != nullptr && is_folder(*text);
    case Kind::Address:
        return text != nullptr && is_address(*text);
    }
    return false;
}

std::string_view allowed(Kind kind) {
    switch (kind) {
    case Kind::Level:
        return "critical, error, warning, notice, info or debug (0 to 5)";
    case Kind::Size:
        return "65536 to 1073741824 bytes";
    case Kind::Port:
        return "1 to 65535";
    case Kind::Folder:
        return "an absolute path that ends in '/', at most 31 bytes of A-Z a-z 0-9 . _ / -";
    case Kind::Address:
        return "a dotted IPv4 address, or 0.0.0.0 for an unused receiver";
    }
    return "";
}

std::string not_allowed(std::string_view value, std::string_view allowed) {
    return fmt::format("{} is not allowed; it must be {}", value, allowed);
}

std::string wrongly_stored(std::string_view value, Kind kind) {
    return fmt::format("{} is stored, but it must be {}", value, allowed(kind));
}

core::Result<Value> parse(Setting const& setting, std::string_view text) {
    auto value = value_in(setting.kind, text);
    if (!value || !is_allowed(setting.kind, *value)) {
        auto const near = setting.kind == Kind::Level
                              ? nearest(text, {level_names.begin(), level_names.end()})
                              : std::vector<std::string>{};
        return fail(Error::InvalidInputArg, "{}: {}{}{}", setting.path,
                    not_allowed(printable(text), allowed(setting.kind)), near.empty() ? "" : "; ",
                    did_you_mean(near));
    }
    return *std::move(value);
}

std::string to_text(Kind kind, Value const& value) {
    if (auto const* const text = std::get_if<std::string>(&value)) {
        return *text;
    }
    auto const number = std::get<std::int64_t>(value);
    if (kind == Kind::Level && is_allowed(kind, value)) {
        return std::string{level_names.at(static_cast<std::size_t>(number))};
    }
    return std::to_string(number);
}

} // namespace xpon::cfgdb
