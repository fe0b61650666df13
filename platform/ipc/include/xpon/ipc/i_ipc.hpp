#pragma once

#include <cstddef>
#include <optional>
#include <span>

#include "core/result.hpp"
#include "xpon/ipc/event_numbers.hpp"
#include "xpon/ipc/message.hpp"

namespace xpon::ipc {

/// One endpoint on the message bus.
class IIpc {
  public:
    /// Sends one message to the bus; never blocks. A message that did not pass the broker (it is absent, or
    /// ends at that moment) is kept, each distinct one once, and sent again at the next connection. It is
    /// delivered at least once while the endpoint exists, and may be delivered twice. What a module says about
    /// its file (`file_changed_reply`, `file_known_event`) is not kept. `Overflow`: without a
    /// broker, 64 distinct messages are already kept; or the queue is full because the broker does not read
    /// (frozen, overloaded). `InvalidInputArg`: the payload is larger than `max_payload_size`. Safe from any
    /// thread.
    virtual core::Result<void> send(Header const& header, std::span<std::byte const> payload) = 0;

    /// The next message for this endpoint or for everybody, or nothing if none is waiting; never blocks.
    /// Invalid frames are skipped. One thread at a time; any number of threads may send meanwhile. The
    /// endpoint connects and reconnects only while a thread calls this function whenever `receive_fd` is
    /// readable.
    virtual core::Result<std::optional<Message>> receive() = 0;

    /// A descriptor that becomes readable when `receive` should be called until it returns nothing. It is
    /// edge-triggered: empty the queue once before the first wait and after each wait.
    virtual int receive_fd() const = 0;

    /// The endpoint's own address.
    virtual Address address() const = 0;

    virtual ~IIpc() = default;
};

} // namespace xpon::ipc
