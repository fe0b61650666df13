#include "broker/broker.hpp"

#include <array>
#include <chrono>
#include <stdexcept>

#include <fmt/format.h>
#include <sys/stat.h>

#include "src/zmq_frames.hpp"

namespace xpon::ipc {

namespace {

// Publishers and subscribers wait for each other only for a short time.
constexpr int most_at_once = 100;

void bind_in(BusFolder& folder, char const* name, zmq::socket_t& socket) {
    auto const path = folder.make_room(name);
    try {
        socket.bind(zmq_endpoint(path));
    } catch (zmq::error_t const& error) {
        throw std::runtime_error{fmt::format("cannot listen at {}: {}", path.string(), error.what())};
    }
    folder.adopt(path);
}

std::uint64_t milliseconds_since_the_epoch() {
    using namespace std::chrono;
    return static_cast<std::uint64_t>(
        duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count());
}

} // namespace

Broker::Broker(BusFolder& folder)
  : frontend{new_socket(zmq::socket_type::xsub)}
  , backend{new_socket(zmq::socket_type::stream)}
  , subscribers{backend} {
    // Receive every message, even without a subscriber for it: the modules' answers are kept.
    static constexpr std::array<std::byte, 1> subscription_to_everything{std::byte{1}};
    send_frame(frontend, subscription_to_everything);

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
    std::array<zmq::pollitem_t, 3> items{
        {{frontend, 0, ZMQ_POLLIN, 0}, {backend, 0, ZMQ_POLLIN, 0}, {nullptr, stop, ZMQ_POLLIN, 0}}};
    while ((items[2].revents & ZMQ_POLLIN) == 0) {
        despite_signals([&] { return zmq::poll(items, std::chrono::milliseconds{-1}); });
        take_subscriptions();
        forward_messages();
    }
}

void Broker::take_subscriptions() {
    Subscribers::Notices notices;
    for (int count = 0; count < most_at_once && subscribers.take(notices); ++count) {
    }
    pass_on(notices);
}

void Broker::pass_on(Subscribers::Notices const& notices) {
    for (auto const& notice : notices) {
        send_frame(frontend, notice);
    }
}

void Broker::forward_messages() {
    Subscribers::Notices notices;
    for (int count = 0; count < most_at_once; ++count) {
        auto const frame = next_frame(frontend);
        if (!frame) {
            break;
        }
        subscribers.publish(bytes_of(*frame), notices);
        if (auto const reply = answers.take(bytes_of(*frame), milliseconds_since_the_epoch())) {
            subscribers.publish(*reply, notices);
        }
    }
    pass_on(notices);
}

} // namespace xpon::ipc
