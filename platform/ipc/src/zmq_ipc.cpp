#include "xpon/ipc/zmq_ipc.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <mutex>
#include <stdexcept>
#include <system_error>

#include <sys/epoll.h>
#include <sys/random.h>
#include <sys/un.h>

#include "core/blocked_signals.hpp"
#include "core/failure.hpp"
#include "core/unique_fd.hpp"
#include "xpon/ipc/payload.hpp"
#include "zmq_frames.hpp"

namespace xpon::ipc {

namespace {

using core::Error;
using core::fail;
using core::Result;
using core::success;

// An absent broker costs one attempt to connect per socket every 8 to 9 s.
constexpr std::chrono::milliseconds first_reconnect_interval{1000};
constexpr std::chrono::milliseconds longest_reconnect_interval{8000};

Address unused_address() {
    Address address{0};
    while (address.value <= any_address.value) {
        if (getrandom(&address, sizeof address, 0) != ssize_t{sizeof address} && errno != EINTR) {
            throw std::system_error{errno, std::generic_category(), "no random address"};
        }
    }
    return address;
}

zmq::socket_t connected_socket(zmq::context_t& context, zmq::socket_type type,
                               std::filesystem::path const& path) {
    static constexpr auto longest_path = sizeof(sockaddr_un::sun_path) - 1;
    if (auto const length = path.string().size(); length > longest_path) {
        throw std::runtime_error{fmt::format("the path {} has {} bytes, a socket's may have at most {}",
                                             path.string(), length, longest_path)};
    }
    zmq::socket_t socket{context, type};
    socket.set(zmq::sockopt::linger, linger_time);
    socket.set(zmq::sockopt::sndhwm, queue_length);
    socket.set(zmq::sockopt::rcvhwm, receive_queue_length);
    socket.set(zmq::sockopt::maxmsgsize, std::int64_t{max_frame_size});
    socket.set(zmq::sockopt::reconnect_ivl, static_cast<int>(first_reconnect_interval.count()));
    socket.set(zmq::sockopt::reconnect_ivl_max, static_cast<int>(longest_reconnect_interval.count()));
    // A queue lives only as long as its connection: else messages would pile up for a broker that has gone,
    // and would be delivered, stale, to the next one.
    socket.set(zmq::sockopt::immediate, true);
    if (type == zmq::socket_type::xpub) {
        // A full queue is reported instead of losing the message in silence.
        socket.set(zmq::sockopt::xpub_nodrop, true);
        // After a restart of the broker its subscriptions can arrive before the old connection's have been
        // forgotten; they must be noticed all the same.
        socket.set(zmq::sockopt::xpub_verbose, true);
    }
    socket.connect(zmq_endpoint(path));
    return socket;
}

/// Readable when one of the two is.
core::UniqueFd joined(int first, int second) {
    core::UniqueFd both{epoll_create1(EPOLL_CLOEXEC)};
    for (int const fd : {first, second}) {
        epoll_event event{.events = EPOLLIN, .data = {}};
        if (epoll_ctl(both.get(), EPOLL_CTL_ADD, fd, &event) != 0) {
            throw std::system_error{errno, std::generic_category(), "no epoll descriptor"};
        }
    }
    return both;
}

// It publishes through an XPUB socket, which is a PUB socket that can be asked what it was subscribed to. The
// broker passes every subscription on to those who publish; so when the endpoint's own subscription comes
// back to it, both of its connections are up and the broker has its subscriptions. Only then can a message
// that it sends to itself arrive: that message is how `receive` reports the connection.
class ZmqIpc final : public IIpc {
  public:
    ZmqIpc(Address own_address, std::string endpoint_name, std::filesystem::path const& folder)
      : own{own_address}
      , name{std::move(endpoint_name)}
      , publisher{connected_socket(context, zmq::socket_type::xpub, folder / "publish")}
      , subscriber{connected_socket(context, zmq::socket_type::sub, folder / "subscribe")}
      , wake_up{joined(publisher.get(zmq::sockopt::fd), subscriber.get(zmq::sockopt::fd))} {
        for (auto const& destination : {everybody, own}) {
            auto const prefix = payload_of(destination);
            subscriber.set(zmq::sockopt::subscribe, zmq::buffer(prefix.data(), prefix.size()));
        }
    }

    Result<void> send(Header const& header, std::span<std::byte const> payload) override {
        if (payload.size() > max_payload_size) {
            return fail(Error::InvalidInputArg,
                        "{}: event {} has a payload of {} bytes, at most {} are allowed", name, header.event,
                        payload.size(), max_payload_size);
        }
        auto const frame = encode(header, payload);
        std::lock_guard const lock{mutex};
        try {
            notice_connection();
            bool const sent = send_frame(publisher, frame);
            notice_connection();
            if (!sent) {
                return fail(Error::Overflow, "{}: event {} not sent, {} messages wait for the message broker",
                            name, header.event, queue_length);
            }
        } catch (zmq::error_t const& error) {
            return fail(Error::CommonError, "{}: event {} not sent ({})", name, header.event, error.what());
        }
        return success();
    }

    Result<std::optional<Message>> receive() override {
        try {
            {
                std::lock_guard const lock{mutex};
                notice_connection();
            }
            while (auto const frame = next_frame(subscriber)) {
                if (auto message = decode(bytes_of(*frame))) {
                    return message;
                }
            }
        } catch (zmq::error_t const& error) {
            return fail(Error::CommonError, "{}: cannot receive ({})", name, error.what());
        }
        return std::optional<Message>{};
    }

    int receive_fd() const override { return wake_up.get(); }

    Address address() const override { return own; }

  private:
    /// Takes what the publisher was subscribed to since the last call. With the lock held, also after each
    /// sending: that takes away the announcement of what has arrived meanwhile. Throws zmq::error_t.
    void notice_connection() {
        do {
            while (auto const notice = next_frame(publisher)) {
                hello_due |= std::ranges::equal(bytes_of(*notice), own_subscription);
            }
            // The full queue of the connection before may still be in the way; then the next call tries
            // again.
        } while (hello_due && say_hello());
    }

    bool say_hello() {
        bool const sent = send_frame(publisher, encode({own, connected_event, 0}, {}));
        hello_due = !sent;
        return sent;
    }

    /// A subscription as ZeroMQ passes it on: 1 (a withdrawal: 0), then the prefix.
    std::vector<std::byte> subscription_to(Address destination) const {
        auto subscription = payload_of(destination);
        subscription.insert(subscription.begin(), std::byte{1});
        return subscription;
    }

    Address const own;
    std::string const name;
    std::vector<std::byte> const own_subscription = subscription_to(own);
    zmq::context_t context{1};
    std::mutex mutex;
    zmq::socket_t publisher;  // guarded by mutex
    bool hello_due = false;   // guarded by mutex
    zmq::socket_t subscriber; // the receiving thread's
    core::UniqueFd wake_up;
};

} // namespace

std::shared_ptr<IIpc> make_zmq_ipc(Address address, std::string const& name,
                                   std::filesystem::path const& folder) {
    if (address == everybody) {
        throw std::invalid_argument{fmt::format("{}: {:#x} is everybody's address", name, address.value)};
    }
    // ZeroMQ starts its threads at the first socket.
    core::BlockedSignals const blocked;
    try {
        return std::make_shared<ZmqIpc>(address == any_address ? unused_address() : address, name,
                                        std::filesystem::absolute(folder));
    } catch (std::exception const& reason) {
        throw std::runtime_error{fmt::format("{}: no endpoint on the message bus in {} ({})", name,
                                             folder.string(), reason.what())};
    }
}

} // namespace xpon::ipc
