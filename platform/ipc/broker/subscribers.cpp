#include "broker/subscribers.hpp"

#include <cerrno>
#include <iterator>
#include <tuple>
#include <utility>

#include "src/zmq_frames.hpp"

namespace xpon::ipc {

Subscribers::Subscribers(zmq::socket_t& stream)
  : socket{stream} {}

bool Subscribers::take(Notices& notices) {
    zmq::message_t name;
    if (!despite_signals([&] { return socket.recv(name, zmq::recv_flags::dontwait); })) {
        return false;
    }
    zmq::message_t data;
    std::ignore = despite_signals([&] { return socket.recv(data, zmq::recv_flags::none); });
    auto const connection = name.to_string();
    auto const found = subscribers.find(connection);
    // The socket announces a connection, and its end, by a message without content.
    if (found == subscribers.end()) {
        if (data.empty()) {
            connect(connection);
        }
        return true;
    }
    auto& subscriber = found->second;
    bool const goes_on = !data.empty() && subscriber.take(bytes_of(data));
    std::ranges::move(subscriber.take_notices(), std::back_inserter(notices));
    if (!goes_on) {
        forget(found, notices);
        std::ignore = send(connection, {});
    }
    return true;
}

void Subscribers::publish(std::span<std::byte const> message, Notices& notices) {
    auto const frame = Subscriber::framed(message);
    zmq::message_t shared{frame.data(), frame.size()};
    for (auto next = subscribers.begin(); next != subscribers.end();) {
        auto const entry = next++;
        if (entry->second.wants(message)) {
            zmq::message_t copy; // of the reference
            copy.copy(shared);
            // The announcement of an end is lost where too much of what the peer has sent waits before it.
            if (send(entry->first, std::move(copy)) == Sent::Gone) {
                forget(entry, notices);
            }
        }
    }
}

void Subscribers::connect(Connection const& connection) {
    auto const introduction = Subscriber::introduction();
    if (send(connection, zmq::message_t{introduction.data(), introduction.size()}) == Sent::Yes) {
        subscribers.try_emplace(connection);
    }
}

void Subscribers::forget(std::map<Connection, Subscriber>::iterator entry, Notices& notices) {
    entry->second.leave();
    std::ranges::move(entry->second.take_notices(), std::back_inserter(notices));
    subscribers.erase(entry);
}

Subscribers::Sent Subscribers::send(Connection const& connection, zmq::message_t message) {
    try {
        auto const name = zmq::buffer(connection);
        bool const sent = despite_signals([&] {
                              return socket.send(name, zmq::send_flags::sndmore | zmq::send_flags::dontwait);
                          }) &&
                          despite_signals([&] { return socket.send(message, zmq::send_flags::dontwait); });
        return sent ? Sent::Yes : Sent::NoRoom;
    } catch (zmq::error_t const& error) {
        if (error.num() != EHOSTUNREACH) {
            throw;
        }
        return Sent::Gone;
    }
}

} // namespace xpon::ipc
