#pragma once

#include <map>
#include <span>
#include <string>
#include <vector>

#include <zmq.hpp>

#include "broker/subscriber.hpp"

namespace xpon::ipc {

/// Those who receive, over a socket that passes on their bytes as they come (ZMQ_STREAM). ZeroMQ's own socket
/// for this, XPUB, stores whatever a peer subscribes to before anybody can refuse it.
class Subscribers {
  public:
    /// The socket must be of the type `stream` and live longer.
    explicit Subscribers(zmq::socket_t& stream);

    /// Takes one piece of what subscribers have sent, and what it changed for those who publish: see
    /// Subscriber::take_notices. False if nothing was waiting. Throws zmq::error_t.
    bool take(std::vector<std::vector<std::byte>>& notices);

    /// Sends a message to all who have subscribed to it; who has no room for it misses it. Throws
    /// zmq::error_t.
    void publish(std::span<std::byte const> message);

  private:
    /// The name by which the socket knows a connection.
    using Connection = std::string;

    void connect(Connection const& connection);
    /// False if the connection has gone or has no room. An empty message ends it.
    bool send(Connection const& connection, zmq::message_t message);

    zmq::socket_t& socket;
    std::map<Connection, Subscriber> subscribers;
};

} // namespace xpon::ipc
