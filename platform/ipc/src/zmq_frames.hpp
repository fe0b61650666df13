#pragma once

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <span>
#include <string>

#include <zmq.hpp>

namespace xpon::ipc {

/// How long the end of a socket waits for messages that are still on their way, in milliseconds.
inline constexpr int linger_time = 100;
/// How many messages wait for one peer at most.
inline constexpr int queue_length = 1000;
/// How many messages wait in an endpoint until they are taken: few, since each can be as long as a frame may
/// be, and more can wait in the broker.
inline constexpr int receive_queue_length = 16;

inline std::string zmq_endpoint(std::filesystem::path const& socket) {
    return "ipc://" + socket.string();
}

/// Runs a ZeroMQ call again for as long as a signal interrupts it.
template <class Call>
auto despite_signals(Call call) {
    for (;;) {
        try {
            return call();
        } catch (zmq::error_t const& error) {
            if (error.num() != EINTR) {
                throw;
            }
        }
    }
}

/// Sends one frame without waiting; false if the queue is full. Throws zmq::error_t.
inline bool send_frame(zmq::socket_t& socket, std::span<std::byte const> frame) {
    return despite_signals([&] {
               return socket.send(zmq::buffer(frame.data(), frame.size()), zmq::send_flags::dontwait);
           })
        .has_value();
}

/// The next frame that came alone, nothing if none is waiting. Frames of messages in several parts are
/// skipped: nobody on the bus sends such. Throws zmq::error_t.
inline std::optional<zmq::message_t> next_frame(zmq::socket_t& socket) {
    bool inside = false;
    for (;;) {
        zmq::message_t frame;
        if (!despite_signals([&] { return socket.recv(frame, zmq::recv_flags::dontwait); })) {
            return std::nullopt;
        }
        if (!inside && !frame.more()) {
            return frame;
        }
        inside = frame.more();
    }
}

inline std::span<std::byte const> bytes_of(zmq::message_t const& frame) {
    return {frame.data<std::byte>(), frame.size()};
}

} // namespace xpon::ipc
