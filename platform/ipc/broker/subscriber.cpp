#include "broker/subscriber.hpp"

#include <algorithm>
#include <exception>
#include <string_view>
#include <utility>

#include "xpon/ipc/address.hpp"

namespace xpon::ipc {

namespace {

using namespace std::string_view_literals;

// Signature, version 3.0, mechanism, no server, filler; then the command READY.
constexpr auto signature = "\xFF\0\0\0\0\0\0\0\1\x7F"sv;
constexpr auto mechanism = "NULL\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"sv;
static_assert(mechanism.size() == 20);
constexpr std::size_t major_version_at = 10;
constexpr std::size_t mechanism_at = 12;
constexpr std::size_t greeting_size = 64;
constexpr auto ready_command = "\5READY"sv;
constexpr auto own_properties = "\x0BSocket-Type\0\0\0\4XPUB"sv;

// The first byte of a frame; another bit is none.
constexpr unsigned has_more = 1;
constexpr unsigned has_long_size = 2;
constexpr unsigned is_command = 4;

constexpr std::byte subscribes{1};
constexpr std::byte withdraws{0};

struct ProtocolError : std::exception {};

void expect(bool holds) {
    if (!holds) {
        throw ProtocolError{};
    }
}

void append(std::vector<std::byte>& bytes, std::string_view text) {
    std::ranges::copy(std::as_bytes(std::span{text}), std::back_inserter(bytes));
}

bool holds_at(std::span<std::byte const> bytes, std::size_t at, std::string_view text) {
    return bytes.size() >= at + text.size() &&
           std::ranges::equal(bytes.subspan(at, text.size()), std::as_bytes(std::span{text}));
}

std::vector<std::byte> make_introduction() {
    std::vector<std::byte> bytes;
    append(bytes, signature);
    append(bytes, "\3\0"sv);
    append(bytes, mechanism);
    bytes.resize(greeting_size);
    append(bytes, "\4"sv);
    bytes.push_back(static_cast<std::byte>(ready_command.size() + own_properties.size()));
    append(bytes, ready_command);
    append(bytes, own_properties);
    return bytes;
}

} // namespace

std::span<std::byte const> Subscriber::introduction() {
    static auto const bytes = make_introduction();
    return bytes;
}

std::vector<std::byte> Subscriber::framed(std::span<std::byte const> message) {
    std::vector<std::byte> frame;
    bool const is_long = message.size() > 255;
    frame.reserve(9 + message.size());
    frame.push_back(static_cast<std::byte>(is_long ? has_long_size : 0));
    for (int shift = is_long ? 56 : 0; shift >= 0; shift -= 8) {
        frame.push_back(static_cast<std::byte>(message.size() >> shift));
    }
    std::ranges::copy(message, std::back_inserter(frame));
    return frame;
}

bool Subscriber::take(std::span<std::byte const> bytes) {
    input.insert(input.end(), bytes.begin(), bytes.end());
    try {
        if (greeted || take_greeting()) {
            while (take_frame()) {
            }
        }
    } catch (ProtocolError const&) {
        return false;
    }
    return true;
}

bool Subscriber::wants(std::span<std::byte const> message) const {
    return std::ranges::any_of(prefixes, [message](auto const& prefix) {
        return message.size() >= prefix.size() && std::ranges::equal(message.first(prefix.size()), prefix);
    });
}

void Subscriber::leave() {
    for (auto const& prefix : prefixes) {
        note(withdraws, prefix);
    }
    prefixes.clear();
}

std::vector<std::vector<std::byte>> Subscriber::take_notices() {
    return std::exchange(notices, {});
}

bool Subscriber::take_greeting() {
    if (input.size() < greeting_size) {
        return false;
    }
    // The size in the signature, and the minor version, are anybody's choice.
    expect(input.front() == std::byte{0xFF} && (input[signature.size() - 1] & std::byte{1}) == std::byte{1});
    expect(input[major_version_at] >= std::byte{3} && holds_at(input, mechanism_at, mechanism));
    input.erase(input.begin(), input.begin() + greeting_size);
    greeted = true;
    return true;
}

bool Subscriber::take_frame() {
    if (input.empty()) {
        return false;
    }
    auto const flags = std::to_integer<unsigned>(input.front());
    expect((flags & ~(has_more | has_long_size | is_command)) == 0);
    std::size_t const header_size = (flags & has_long_size) != 0 ? 9 : 2;
    if (input.size() < header_size) {
        return false;
    }
    std::size_t size = 0;
    for (std::size_t at = 1; at < header_size; ++at) {
        size = size << 8 | std::to_integer<std::size_t>(input[at]);
    }
    expect(size <= max_frame_size);
    if (input.size() < header_size + size) {
        return false;
    }
    auto const content = Bytes{input}.subspan(header_size, size);
    (flags & is_command) != 0 ? take_command(content) : take_message(content);
    input.erase(input.begin(), input.begin() + static_cast<std::ptrdiff_t>(header_size + size));
    return true;
}

void Subscriber::take_command(Bytes command) {
    expect(ready || holds_at(command, 0, ready_command));
    ready = true;
}

void Subscriber::take_message(Bytes message) {
    expect(ready);
    if (message.empty()) {
        return;
    }
    std::vector<std::byte> prefix{message.begin() + 1, message.end()};
    if (message.front() == subscribes && !prefixes.contains(prefix)) {
        expect(prefixes.size() < max_subscriptions);
        note(subscribes, prefix);
        prefixes.insert(std::move(prefix));
    } else if (message.front() == withdraws && prefixes.erase(prefix) != 0) {
        note(withdraws, prefix);
    }
}

// Endpoints wait for their own addresses among those who publish. What is subscribed to otherwise would only
// fill the memory of all of them.
void Subscriber::note(std::byte kind, Bytes prefix) {
    if (prefix.size() == sizeof(Address)) {
        notices.emplace_back(1, kind).insert(notices.back().end(), prefix.begin(), prefix.end());
    }
}

} // namespace xpon::ipc
