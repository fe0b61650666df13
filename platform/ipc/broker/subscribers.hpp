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

    /// What changed for those who publish: see Subscriber::take_notices.
    using Notices = std::vector<std::vector<std::byte>>;

    /// Takes one piece of what subscribers have sent, and adds what it changed. False if nothing was waiting.
    /// Throws zmq::error_t.
    bool take(Notices& notices);

    /// Sends a message to all who have subscribed to it; who has no room for it misses it. Adds what was
    /// changed by those who turn out to have gone. Throws zmq::error_t.
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
