#include "unconfirmed.hpp"

#include <algorithm>
#include <utility>

namespace xpon::ipc {

namespace {

auto equals(std::span<std::byte const> frame) {
    return [frame](Unconfirmed::Entry const& entry) { return std::ranges::equal(entry.frame, frame); };
}

} // namespace

Unconfirmed::Unconfirmed(std::uint64_t number)
  : last{number} {}

bool Unconfirmed::has_room_for(std::span<std::byte const> frame) const {
    return kept.size() < capacity || std::ranges::any_of(kept, equals(frame));
}

void Unconfirmed::add(std::vector<std::byte> frame) {
    std::erase_if(kept, equals(frame));
    if (kept.size() == capacity) {
        kept.erase(kept.begin());
    }
    kept.push_back({++last, std::move(frame)});
}

void Unconfirmed::confirm(std::uint64_t number) {
    std::erase_if(kept, [number](Entry const& entry) { return entry.number <= number; });
}

} // namespace xpon::ipc
