#include "xpon/ipc/zmq_ipc.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <system_error>

#include <sys/epoll.h>
#include <sys/random.h>
#include <sys/un.h>

#include "core/blocked_signals.hpp"
#include "core/failure.hpp"
#include "core/unique_fd.hpp"
#include "unconfirmed.hpp"
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

// An endpoint to itself: what it sent up to this number has passed the broker. Payload: the number.
constexpr std::uint16_t confirmation_event = 12505;

template <class Number>
Number random_number() {
    Number number{};
    while (getrandom(&number, sizeof number, 0) != ssize_t{sizeof number}) {
        if (errno != EINTR) {
            throw std::system_error{errno, std::generic_category(), "no random number"};
        }
    }
    return number;
}

Address unused_address() {
    Address address{0};
    while (address.value <= any_address.value) {
        address.value = random_number<std::uint32_t>();
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
// that it sends to itself arrive: that message is how `receive` reports the connection. The subscription is
// withdrawn when one of the two connections ends.
//
// What is sent while there is no connection is dropped by ZeroMQ, and so is what waits for a broker that
// dies. The endpoint therefore keeps what it sends until a message to itself that it sent later has come
// back, and sends at every connection again what it still has. One such message is under way at a time, so a
// burst costs few of them.
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
            if (!connected && !unconfirmed.has_room_for(frame)) {
                return queue_is_full(header, Unconfirmed::capacity);
            }
            bool const sent = send_frame(publisher, frame);
            if (sent) {
                unconfirmed.add(std::move(frame));
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
                if (message && message->header == confirmation_header) {
                    take_confirmation(message->payload);
                } else if (message) {
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
    /// held, also after each sending: that takes away the announcement of what has arrived meanwhile. Throws
    /// zmq::error_t.
    void attend_connection() {
        do {
            while (auto const notice = next_frame(publisher)) {
                if (std::ranges::equal(bytes_of(*notice), own_subscription)) {
                    connected = true;
                    greeting_due = true;
                } else if (std::ranges::equal(bytes_of(*notice), own_withdrawal)) {
                    connected = false;
                }
            }
            // The full queue of the connection before may still be in the way; then the next call tries
            // again.
        } while ((greeting_due && greet()) || (confirmation_due() && ask_for_confirmation()));
    }

    bool greet() {
        awaited.reset(); // the answer of the broker before is lost
        bool const sent = send_frame(publisher, encode({own, connected_event, 0}, {})) &&
                          std::ranges::all_of(unconfirmed.entries(), [this](auto const& entry) {
                              return send_frame(publisher, entry.frame);
                          });
        greeting_due = !sent;
        return sent;
    }

    bool confirmation_due() const { return connected && !awaited && !unconfirmed.entries().empty(); }

    bool ask_for_confirmation() {
        auto const number = unconfirmed.last_number();
        bool const sent = send_frame(publisher, encode(confirmation_header, payload_of(number)));
        if (sent) {
            awaited = number;
        }
        return sent;
    }

    void take_confirmation(std::span<std::byte const> payload) {
        std::lock_guard const lock{mutex};
        // Another endpoint with the same address has other numbers.
        if (auto const number = record_in<std::uint64_t>(payload); number && number == awaited) {
            unconfirmed.confirm(*number);
            awaited.reset();
        }
        attend_connection();
    }

    /// A subscription as ZeroMQ passes it on: 1 (a withdrawal: 0), then the prefix.
    std::vector<std::byte> notice_of(std::byte kind, Address destination) const {
        auto notice = payload_of(destination);
        notice.insert(notice.begin(), kind);
        return notice;
    }

    Address const own;
    std::string const name;
    std::vector<std::byte> const own_subscription = notice_of(std::byte{1}, own);
    std::vector<std::byte> const own_withdrawal = notice_of(std::byte{0}, own);
    Header const confirmation_header{own, confirmation_event, 0};
    zmq::context_t context{1};
    std::mutex mutex;
    zmq::socket_t publisher;   // guarded by mutex
    bool connected = false;    // guarded by mutex; both ways, as far as is known
    bool greeting_due = false; // guarded by mutex
    // guarded by mutex; the first number is random, so that it says whose it is
    Unconfirmed unconfirmed{random_number<std::uint64_t>() / 2};
    std::optional<std::uint64_t> awaited; // guarded by mutex; the number that is under way
    zmq::socket_t subscriber;             // the receiving thread's
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
