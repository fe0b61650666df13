#include "xpon/ipc/zmq_ipc.hpp"

#include <cerrno>
#include <chrono>
#include <mutex>
#include <optional>
#include <random>
#include <stdexcept>
#include <system_error>

#include <sys/epoll.h>
#include <sys/un.h>

#include "core/blocked_signals.hpp"
#include "core/failure.hpp"
#include "core/unique_fd.hpp"
#include "handshake.hpp"
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
    std::random_device random;
    return {std::uniform_int_distribution<std::uint32_t>{any_address.value + 1}(random)};
}

std::uint64_t random_number() {
    std::random_device random;
    return std::uniform_int_distribution<std::uint64_t>{0, std::uint64_t{1} << 63}(random);
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

// It publishes through an XPUB socket, which is a PUB socket that reports what it was subscribed to.
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
        auto frame = encode(header, payload);
        std::lock_guard const lock{mutex};
        try {
            attend_connection();
            if (!handshake.accepts(frame)) {
                return queue_is_full(header, Handshake::capacity);
            }
            bool const sent = send_frame(publisher, frame);
            if (sent) {
                handshake.sent(std::move(frame));
            }
            attend_connection();
            if (!sent) {
                return queue_is_full(header, queue_length);
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
                attend_connection();
            }
            while (auto const frame = next_frame(subscriber)) {
                auto message = decode(bytes_of(*frame));
                if (message && !take_confirmation(*message)) {
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
    Result<void> queue_is_full(Header const& header, std::size_t length) const {
        return fail(Error::Overflow, "{}: event {} not sent, {} messages wait for the message broker", name,
                    header.event, length);
    }

    /// Takes what the publisher was subscribed to since the last call, and sends what is due. With the lock
    /// held, and also after each sending, which takes away the announcement of what has arrived meanwhile.
    /// Throws zmq::error_t.
    void attend_connection() {
        do {
            while (auto const notice = next_frame(publisher)) {
                handshake.take_notice(bytes_of(*notice));
            }
        } while (handshake.send_due([this](auto frame) { return send_frame(publisher, frame); }));
    }

    bool take_confirmation(Message const& message) {
        std::lock_guard const lock{mutex};
        bool const taken = handshake.take_confirmation(message);
        if (taken) {
            attend_connection();
        }
        return taken;
    }

    Address const own;
    std::string const name;
    zmq::context_t context{1};
    std::mutex mutex;
    zmq::socket_t publisher;                   // guarded by mutex
    Handshake handshake{own, random_number()}; // guarded by mutex
    zmq::socket_t subscriber;                  // the receiving thread's
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
