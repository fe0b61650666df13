#include "handshake.hpp"

#include <algorithm>
#include <utility>

#include "xpon/ipc/event_numbers.hpp"
#include "xpon/ipc/payload.hpp"

namespace xpon::ipc {

namespace {

bool is_kept(std::span<std::byte const> frame) {
    auto const message = decode(frame);
    return !message ||
           (message->header.event != file_changed_reply && message->header.event != file_known_event);
}

auto holds(std::span<std::byte const> frame) {
    return [frame](auto const& entry) { return std::ranges::equal(entry.frame, frame); };
}

} // namespace

Handshake::Handshake(Address own_address, std::uint64_t number)
  : own{own_address}
  , subscription{payload_of(own)}
  , last{number} {}

void Handshake::take_notice(std::span<std::byte const> notice) {
    if (notice.empty() || !std::ranges::equal(notice.subspan(1), subscription)) {
        return;
    }
    connected = notice.front() == std::byte{1};
    greeting_due = greeting_due || connected;
}

bool Handshake::accepts(std::span<std::byte const> frame) const {
    return connected || !is_kept(frame) || kept.size() < capacity || std::ranges::any_of(kept, holds(frame));
}

void Handshake::sent(Frame frame) {
    if (!is_kept(frame)) {
        return;
    }
    std::erase_if(kept, holds(frame));
    if (kept.size() == capacity) {
        kept.erase(kept.begin());
    }
    kept.push_back({++last, std::move(frame)});
}

bool Handshake::send_due(Send const& send) {
    if (greeting_due) {
        return greet(send);
    }
    bool const confirmation_due = connected && !awaited && !kept.empty();
    return confirmation_due && ask_for_confirmation(send);
}

bool Handshake::greet(Send const& send) {
    awaited.reset(); // the answer of the broker before is lost
    bool const all_sent = send(encode({own, connected_event, 0}, {})) &&
                          std::ranges::all_of(kept, [&](auto const& entry) { return send(entry.frame); });
    greeting_due = !all_sent;
    return all_sent;
}

bool Handshake::ask_for_confirmation(Send const& send) {
    bool const is_sent = send(encode({own, confirmation_event, 0}, payload_of(last)));
    if (is_sent) {
        awaited = last;
    }
    return is_sent;
}

bool Handshake::take_confirmation(Message const& message) {
    if (message.header != Header{own, confirmation_event, 0}) {
        return false;
    }
    // Another endpoint with the same address has other numbers.
    if (auto const number = record_in<std::uint64_t>(message.payload); number && number == awaited) {
        std::erase_if(kept, [number](Kept const& entry) { return entry.number <= *number; });
        awaited.reset();
    }
    return true;
}

} // namespace xpon::ipc
