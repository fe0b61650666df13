#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace xpon::ipc {

/// What an endpoint has sent and does not yet know to have passed the broker: each distinct frame once, in
/// the order in which it was sent last.
class Unconfirmed {
  public:
    /// How many frames are kept at most.
    static constexpr std::size_t capacity = 64;

    struct Entry {
        std::uint64_t number; ///< of the last sending
        std::vector<std::byte> frame;
    };

    /// `number` is the one before the first sending's.
    explicit Unconfirmed(std::uint64_t number);

    /// Whether the frame can be added without forgetting another.
    bool has_room_for(std::span<std::byte const> frame) const;
    /// Adds a frame that was sent; forgets the oldest one where there is no room.
    void add(std::vector<std::byte> frame);
    /// Forgets what was sent up to this number.
    void confirm(std::uint64_t number);

    std::vector<Entry> const& entries() const { return kept; }
    /// The number of the last sending.
    std::uint64_t last_number() const { return last; }

  private:
    std::vector<Entry> kept; // by number
    std::uint64_t last;
};

} // namespace xpon::ipc
