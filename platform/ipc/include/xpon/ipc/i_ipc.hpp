#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "core/result.hpp"
#include "xpon/ipc/message.hpp"

namespace xpon::ipc {

/// An endpoint receives a message with this event, without payload, from itself whenever a connection to the
/// broker has come up in both directions: messages sent before may have passed it by, from now on it hears
/// them all. So whoever reloads on notification reloads on this event too. It may come more than once.
inline constexpr std::uint16_t connected_event = 12504;

/// One endpoint on the message bus.
class IIpc {
  public:
    /// Hands one message to the bus; never blocks. A message that did not get past the broker (there is none,
    /// or it ends at that moment) is kept, each distinct one once, and goes out again at the next connection:
    /// it is delivered at least once as long as the endpoint lives, and may be delivered twice. `Overflow`:
    /// without a broker 64 distinct messages wait already; or the queue is full, since the broker does not
    /// read (frozen, overloaded). A payload above `max_payload_size` is `InvalidInputArg`. Safe from any
    /// thread.
    virtual core::Result<void> send(Header const& header, std::span<std::byte const> payload) = 0;

    /// The next message for this endpoint or for everybody, nothing if none is waiting; never blocks. Frames
    /// that are no message are skipped. One thread at a time, any number of threads may send meanwhile. The
    /// endpoint is connected, and connected again, only while somebody calls this when `receive_fd` says so.
    virtual core::Result<std::optional<Message>> receive() = 0;

    /// A descriptor that becomes readable when `receive` should be called until it has nothing more. It is
    /// edge-triggered: empty the queue once before the first wait, and after each wait.
    virtual int receive_fd() const = 0;

    /// The endpoint's own address.
    virtual Address address() const = 0;

    virtual ~IIpc() = default;
};

} // namespace xpon::ipc
