#pragma once

#include <map>
#include <span>
#include <string>
#include <vector>

#include <zmq.hpp>

#include "broker/subscriber.hpp"

namespace xpon::ipc {

/// The receivers, over a socket that passes on their raw bytes (ZMQ_STREAM). ZeroMQ's own socket for this,
/// XPUB, stores every subscription before it can be refused.
class Subscribers {
  public:
    /// The socket must be of the type `stream` and live longer.
    explicit Subscribers(zmq::socket_t& stream);

    /// What changed for the publishers: see Subscriber::take_notices.
    using Notices = std::vector<std::vector<std::byte>>;

    /// Takes one piece of data from a subscriber and adds the notices. False if nothing was waiting. Throws
    /// zmq::error_t.
    bool take(Notices& notices);

    /// Sends a message to all who have subscribed to it. A subscriber whose queue is full misses it. Adds the
    /// notices of subscribers that turn out to be gone. Throws zmq::error_t.
    void publish(std::span<std::byte const> message, Notices& notices);

  private:
    /// The name by which the socket knows a connection.
    using Connection = std::string;

    enum class Sent { Yes, NoRoom, Gone };

    void connect(Connection const& connection);
    void forget(std::map<Connection, Subscriber>::iterator entry, Notices& notices);
    /// An empty message ends the connection.
    Sent send(Connection const& connection, zmq::message_t message);

    zmq::socket_t& socket;
    std::map<Connection, Subscriber> subscribers;
};

} // namespace xpon::ipc
