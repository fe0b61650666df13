#include "broker/subscribers.hpp"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <tuple>
#include <utility>

#include "src/zmq_frames.hpp"

namespace xpon::ipc {

Subscribers::Subscribers(zmq::socket_t& stream)
  : socket{stream} {}

bool Subscribers::take(std::vector<std::vector<std::byte>>& notices) {
    zmq::message_t name;
    if (!uninterrupted([&] { return socket.recv(name, zmq::recv_flags::dontwait); })) {
        return false;
    }
    zmq::message_t data;
    std::ignore = uninterrupted([&] { return socket.recv(data, zmq::recv_flags::none); });
    auto const connection = name.to_string();
    auto const found = subscribers.find(connection);
    // The socket announces a connection, and its end, by a message without content.
    if (found == subscribers.end()) {
        if (data.size() == 0) {
            connect(connection);
        }
        return true;
    }
    auto& subscriber = found->second;
    bool const goes_on = data.size() != 0 && subscriber.take(bytes_of(data));
    if (!goes_on) {
        subscriber.leave();
    }
    std::ranges::move(subscriber.take_notices(), std::back_inserter(notices));
    if (!goes_on) {
        subscribers.erase(found);
        std::ignore = send(connection, {});
    }
    return true;
}

void Subscribers::publish(std::span<std::byte const> message) {
    auto const frame = Subscriber::framed(message);
    zmq::message_t shared{frame.data(), frame.size()};
    for (auto const& [connection, subscriber] : subscribers) {
        if (subscriber.wants(message)) {
            zmq::message_t copy; // of the reference
            copy.copy(shared);
            std::ignore = send(connection, std::move(copy));
        }
    }
}

void Subscribers::connect(Connection const& connection) {
    auto const introduction = Subscriber::introduction();
    if (send(connection, zmq::message_t{introduction.data(), introduction.size()})) {
        subscribers.try_emplace(connection);
    }
}

bool Subscribers::send(Connection const& connection, zmq::message_t message) {
    try {
        auto const name = zmq::buffer(connection);
        return uninterrupted(
                   [&] { return socket.send(name, zmq::send_flags::sndmore | zmq::send_flags::dontwait); }) &&
               uninterrupted([&] { return socket.send(message, zmq::send_flags::dontwait); });
    } catch (zmq::error_t const& error) {
        if (error.num() != EHOSTUNREACH) {
            throw;
        }
        return false;
    }
}

} // namespace xpon::ipc
