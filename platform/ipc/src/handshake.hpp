#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "xpon/ipc/message.hpp"

namespace xpon::ipc {

/// What an endpoint does to know that it is connected and that no message is lost. It has no sockets: the
/// endpoint reports what happened on its own and sends what is due.
///
/// 1. The broker passes every subscription on to all publishers. When the endpoint's own subscription comes
///    back to it, both of its connections are up, and the broker has its subscriptions. The subscription is
///    withdrawn when one of the two connections ends.
/// 2. Only then can a message to itself arrive. The endpoint sends itself `connected_event`, which is how
///    `receive` reports the connection. Then it sends again every frame that it keeps.
/// 3. ZeroMQ drops a frame that is sent without a connection, or that waits for a broker that dies. So the
///    endpoint keeps each frame that it sends. It sends itself `confirmation_event` with the number of the
///    last one; when that comes back, all frames up to this number have passed the broker and are forgotten.
///    One confirmation is under way at a time, so a burst costs few of them.
/// 4. What a module says about its file is not kept: it would come again when it is no longer true. At the
///    connection the module reads its file and answers anew.
class Handshake {
  public:
    using Frame = std::vector<std::byte>;
    /// Sends a frame; false if the queue is full.
    using Send = std::function<bool(std::span<std::byte const> frame)>;

    /// How many frames are kept at most, each distinct one once.
    static constexpr std::size_t capacity = 64;

    /// `number` precedes that of the first frame. A random one tells endpoints with the same address apart.
    Handshake(Address own_address, std::uint64_t number);

    /// The publisher's socket reports a subscription as ZeroMQ passes it on: 1 (a withdrawal: 0), then the
    /// prefix.
    void take_notice(std::span<std::byte const> notice);

    /// Whether the frame may be sent: with a connection any, without one only if none must be forgotten.
    bool accepts(std::span<std::byte const> frame) const;
    /// The frame was sent. Keeps it if it is to come again; forgets the oldest one if there is no room.
    void sent(Frame frame);

    /// Sends the greeting or the confirmation if one is due; false if nothing is left to send, or if the
    /// queue is full, perhaps that of the connection before. The next call tries again.
    bool send_due(Send const& send);

    /// Takes a message that has arrived, if it is a confirmation; false if it is not.
    bool take_confirmation(Message const& message);

  private:
    struct Kept {
        std::uint64_t number; // of the last sending
        Frame frame;
    };

    bool greet(Send const& send);
    bool ask_for_confirmation(Send const& send);

    Address own;
    Frame subscription;
    bool connected = false; // in both directions, as far as is known
    bool greeting_due = false;
    std::vector<Kept> kept; // by number
    std::uint64_t last;
    std::optional<std::uint64_t> awaited; // the number that is under way
};

} // namespace xpon::ipc
