#pragma once

#include <cstddef>
#include <set>
#include <span>
#include <vector>

namespace xpon::ipc {

/// The broker's side of one subscriber's connection: ZeroMQ's protocol (ZMTP 3.0, mechanism NULL) without the
/// socket. What one subscriber can make the broker keep is bounded.
class Subscriber {
  public:
    /// Per subscriber; an endpoint of this project has two.
    static constexpr std::size_t max_subscriptions = 64;
    /// Of a frame from a subscriber; a subscription of this project has 5 bytes, a handshake about 40.
    static constexpr std::size_t max_frame_size = 255;

    /// What the broker says first.
    static std::span<std::byte const> introduction();
    /// A message as it travels to a subscriber.
    static std::vector<std::byte> framed(std::span<std::byte const> message);

    /// Takes the next bytes. False if a subscriber may not send them; then disconnect it.
    bool take(std::span<std::byte const> bytes);
    /// Whether it has subscribed to the message.
    bool wants(std::span<std::byte const> message) const;
    /// Withdraws every subscription.
    void leave();

    /// The subscriptions to an address that came or went since the last call, as ZeroMQ passes them on: 1 or,
    /// for a withdrawal, 0, then the address.
    std::vector<std::vector<std::byte>> take_notices();

  private:
    using Bytes = std::span<std::byte const>;

    bool take_greeting();
    /// Takes a frame if one is complete, and says whether it was; throws ProtocolError.
    bool take_frame();
    void take_command(Bytes command);
    void take_message(Bytes message);
    void note(std::byte kind, Bytes prefix);

    std::vector<std::byte> input; // what is not complete yet
    bool greeted = false;
    bool ready = false;
    std::set<std::vector<std::byte>> prefixes;
    std::vector<std::vector<std::byte>> notices;
};

} // namespace xpon::ipc
