#include "broker/broker.hpp"

#include <array>
#include <chrono>
#include <stdexcept>
#include <stop_token>
#include <thread>
#include <tuple>

#include <fmt/format.h>
#include <sys/stat.h>

#include "src/zmq_frames.hpp"

namespace xpon::ipc {

namespace {

constexpr char const* capture_endpoint = "inproc://capture";
constexpr char const* publish_endpoint = "inproc://publish";

// A subscription is a prefix of a message's first 4 bytes; ZeroMQ walks through it recursively, so one that
// is longer must not come in. Its own handshake takes some 40 bytes.
constexpr std::int64_t longest_subscription = 256;

void bind_in(BusFolder& folder, char const* name, zmq::socket_t& socket) {
    auto const path = folder.path() / name;
    try {
        socket.bind(zmq_endpoint(path));
    } catch (zmq::error_t const& error) {
        throw std::runtime_error{fmt::format("cannot listen at {}: {}", path.string(), error.what())};
    }
    folder.adopt(path);
}

void forward(zmq::socket_ref frontend, zmq::socket_ref backend, zmq::socket_ref capture) {
    try {
        uninterrupted([&] { zmq::proxy(frontend, backend, capture); });
    } catch (zmq::error_t const& error) {
        if (error.num() != ETERM) {
            throw; // ends the process: nothing else would tell that the bus is dead
        }
    }
}

std::uint64_t milliseconds_since_the_epoch() {
    using namespace std::chrono;
    return static_cast<std::uint64_t>(
        duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count());
}

} // namespace

Broker::Broker(BusFolder& folder)
  : frontend{new_socket(zmq::socket_type::xsub)}
  , backend{new_socket(zmq::socket_type::xpub)}
  , capture{new_socket(zmq::socket_type::pair)}
  , captured{new_socket(zmq::socket_type::pair)}
  , publisher{new_socket(zmq::socket_type::pub)} {
    // Every message is to come in, whether somebody waits for it or not: the answers are kept.
    static constexpr std::array<std::byte, 1> subscription_to_everything{std::byte{1}};
    send_frame(frontend, subscription_to_everything);
    // Each subscriber hears of its own subscription, also of one that another has already made: that is how
    // an endpoint knows that it is connected.
    backend.set(zmq::sockopt::xpub_verboser, true);
    backend.set(zmq::sockopt::maxmsgsize, longest_subscription);

    capture.bind(capture_endpoint);
    captured.connect(capture_endpoint);
    frontend.bind(publish_endpoint);
    publisher.connect(publish_endpoint);

    umask(S_IXUSR | S_IXGRP | S_IRWXO);
    bind_in(folder, "publish", frontend);
    bind_in(folder, "subscribe", backend);
}

zmq::socket_t Broker::new_socket(zmq::socket_type type) {
    zmq::socket_t socket{context, type};
    socket.set(zmq::sockopt::linger, linger_time);
    socket.set(zmq::sockopt::sndhwm, queue_length);
    socket.set(zmq::sockopt::rcvhwm, queue_length);
    socket.set(zmq::sockopt::maxmsgsize, std::int64_t{max_frame_size});
    return socket;
}

void Broker::run(int stop) {
    std::jthread const forwarding{[this](std::stop_token const& end) {
        std::stop_callback const shutdown{end, [this] { context.shutdown(); }};
        forward(frontend, backend, capture);
    }};
    std::array<zmq::pollitem_t, 2> items{{{captured, 0, ZMQ_POLLIN, 0}, {nullptr, stop, ZMQ_POLLIN, 0}}};
    while ((items[1].revents & ZMQ_POLLIN) == 0) {
        uninterrupted([&] { return zmq::poll(items, std::chrono::milliseconds{-1}); });
        answer_queries();
    }
}

void Broker::answer_queries() {
    while (auto const frame = next_frame(captured)) {
        if (auto const reply = answers.take(bytes_of(*frame), milliseconds_since_the_epoch())) {
            // Whoever's queue is full asks again.
            std::ignore = send_frame(publisher, *reply);
        }
    }
}

} // namespace xpon::ipc
