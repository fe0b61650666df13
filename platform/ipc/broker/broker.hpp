#pragma once

#include <zmq.hpp>

#include "broker/bus_folder.hpp"
#include "broker/last_answers.hpp"
#include "broker/subscribers.hpp"

namespace xpon::ipc {

/// Forwards every message from the publishers to its subscribers, and reports the modules' last answers.
class Broker {
  public:
    /// Creates the sockets, never with more than mode 0660. Changes the file creation mask of the process, so
    /// call it before there are other threads. Throws std::runtime_error naming path and reason.
    explicit Broker(BusFolder& folder);

    /// Forwards until `stop` is readable.
    void run(int stop);

  private:
    zmq::socket_t new_socket(zmq::socket_type type);
    void take_subscriptions();
    void forward_messages();
    void pass_on(Subscribers::Notices const& notices);

    // Used only by the thread that calls `run`; ZeroMQ has a thread of its own.
    zmq::context_t context{1};
    zmq::socket_t frontend; // from those who publish
    zmq::socket_t backend;  // to those who subscribe
    Subscribers subscribers;
    LastAnswers answers;
};

} // namespace xpon::ipc
