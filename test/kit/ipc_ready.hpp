#pragma once

#include <optional>

#include "kit/wait_readable.hpp"
#include "xpon/ipc/i_ipc.hpp"

namespace xpon::test {

/// The endpoint's next message; nothing if none arrives before the deadline.
inline std::optional<ipc::Message> next_message(ipc::IIpc& endpoint,
                                                std::chrono::milliseconds deadline = default_deadline) {
    auto const end = std::chrono::steady_clock::now() + deadline;
    for (;;) {
        auto received = endpoint.receive();
        if (received.value().has_value() || !wait_readable(endpoint.receive_fd(), time_left(end))) {
            return std::move(received).value();
        }
    }
}

/// Takes messages up to and including the first with this event; false if none came before the deadline.
inline bool wait_event(ipc::IIpc& endpoint, std::uint16_t event,
                       std::chrono::milliseconds deadline = default_deadline) {
    auto const end = std::chrono::steady_clock::now() + deadline;
    while (auto const message = next_message(endpoint, time_left(end))) {
        if (message->header.event == event) {
            return true;
        }
    }
    return false;
}

/// Waits until the endpoint is connected: from then on it hears every other connected endpoint, and they it.
inline bool wait_connected(ipc::IIpc& endpoint, std::chrono::milliseconds deadline = default_deadline) {
    return wait_event(endpoint, ipc::connected_event, deadline);
}

} // namespace xpon::test
