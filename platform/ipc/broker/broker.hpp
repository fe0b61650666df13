#pragma once

#include <zmq.hpp>

#include "broker/bus_folder.hpp"
#include "broker/last_answers.hpp"
#include "broker/subscribers.hpp"

namespace xpon::ipc {

/// Forwards every message from those who publish to those who subscribed, and answers for the modules.
class Broker {
  public:
    /// The sockets are there afterwards, mode 0660 at no moment exceeded: call it without other threads, the
    /// file creation mask of the process is changed. Throws std::runtime_error naming path and reason.
    explicit Broker(BusFolder& folder);

    /// Forwards until `stop` is readable.
    void run(int stop);

  private:
    zmq::socket_t new_socket(zmq::socket_type type);
    void take_subscriptions();
    void forward_messages();
    void pass_on(Subscribers::Notices const& notices);

    // All of it is the thread's that calls `run`; ZeroMQ has one of its own.
    zmq::context_t context{1};
    zmq::socket_t frontend; // from those who publish
    zmq::socket_t backend;  // to those who subscribe
    Subscribers subscribers;
    LastAnswers answers;
};

} // namespace xpon::ipc
