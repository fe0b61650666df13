#include <array>
#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <zmq.hpp>

#include "broker/subscriber.hpp"
#include "kit/process_status.hpp"
#include "kit/sanitized.hpp"
#include "test/running_bus.hpp"

namespace xpon::ipc {
namespace {

using test::wait_readable;

/// A connection to one of the broker's sockets that sends whatever it likes.
class RawPeer {
  public:
    explicit RawPeer(std::filesystem::path const& path)
      : socket{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)} {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::ranges::copy(path.native(), address.sun_path);
        EXPECT_EQ(connect(socket.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);
    }

    /// One that begins with the greeting and handshake of ZeroMQ's protocol 3.0.
    RawPeer(std::filesystem::path const& path, std::string const& type)
      : RawPeer{path} {
        std::string greeting(64, '\0');
        greeting.replace(0, 1, "\xFF").replace(9, 2, "\x7F\x03").replace(12, 4, "NULL");
        send(greeting);
        auto const ready =
            std::string("\x05READY\x0BSocket-Type\0\0\0", 21) + static_cast<char>(type.size()) + type;
        send(std::string(1, '\x04') + static_cast<char>(ready.size()) + ready);
        EXPECT_TRUE(hears("Socket-Type"));
    }

    void send_frame(std::string const& content) {
        std::string length(8, '\0');
        for (std::size_t index = 0; index < 8; ++index) {
            length[index] = static_cast<char>(content.size() >> (56 - 8 * index));
        }
        send("\x02" + length + content);
    }

    /// Nobody need take it.
    void send(std::string const& bytes) {
        std::ignore = ::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }

    /// Reads until the broker ends the connection; false if it does not.
    bool is_cut_off() {
        while (wait_readable(socket.get())) {
            if (!read_some()) {
                return true;
            }
        }
        return false;
    }

    /// Reads until these bytes have come; false if they do not.
    bool hears(std::string const& wanted) {
        while (heard.find(wanted) == std::string::npos) {
            if (!wait_readable(socket.get()) || !read_some()) {
                return false;
            }
        }
        return true;
    }

    /// Whether these bytes have come so far.
    bool has_heard(std::string const& wanted) {
        while (wait_readable(socket.get(), std::chrono::milliseconds{0}) && read_some()) {
        }
        return heard.find(wanted) != std::string::npos;
    }

  private:
    /// False at the end of the connection.
    bool read_some() {
        std::array<char, 4096> buffer{};
        auto const length = read(socket.get(), buffer.data(), buffer.size());
        if (length <= 0) {
            return false;
        }
        heard.append(buffer.data(), static_cast<std::size_t>(length));
        return true;
    }

    core::UniqueFd socket;
    std::string heard;
};

class HostilePeerTest : public ConnectedTest {
  protected:
    /// All of them live.
    void TearDown() override {
        expect_traffic(*sender, *receiver);
        expect_traffic(*receiver, *sender);
        expect_traffic(*sender, *new_connected_endpoint());
        EXPECT_EQ(broker->terminate(), 0);
    }

    /// That a message to the four letters of this address reaches the peer.
    void expect_served(RawPeer& peer, std::string const& letters) {
        Address address{};
        std::memcpy(&address, letters.data(), sizeof address);
        EXPECT_TRUE(test::wait_until([&] {
            EXPECT_THAT(sender->send(to(address), {}), test::IsOk());
            return peer.has_heard(letters);
        }));
    }
};

TEST_F(HostilePeerTest, FramesThatAreNoMessagesAreSkipped) {
    zmq::context_t context{1};
    zmq::socket_t hostile{context, zmq::socket_type::xpub};
    hostile.set(zmq::sockopt::linger, 0);
    hostile.set(zmq::sockopt::rcvtimeo, 20'000);
    hostile.connect("ipc://" + (folder / "publish").string());
    zmq::message_t subscription;
    ASSERT_TRUE(hostile.recv(subscription));

    std::string const everybodys{"\xFE\xFF\0\0", 4};
    for (std::size_t length = 0; length < 4; ++length) {
        hostile.send(zmq::buffer(everybodys + std::string(length, 'x')), zmq::send_flags::none);
        hostile.send(zmq::buffer(everybodys.substr(0, length)), zmq::send_flags::none);
    }
    auto const message = everybodys + std::string("\x07\0\0\0", 4);
    hostile.send(zmq::buffer(message), zmq::send_flags::sndmore);
    hostile.send(zmq::buffer(message), zmq::send_flags::sndmore);
    hostile.send(zmq::buffer(message), zmq::send_flags::none);
    auto const good = everybodys + std::string("\x08\0\0\0", 4);
    hostile.send(zmq::buffer(good), zmq::send_flags::none);
    for (auto const& endpoint : {sender, receiver}) {
        EXPECT_EQ(test::next_message(*endpoint), (Message{to(everybody, last_event), {}}));
    }
}

TEST_F(HostilePeerTest, APeerThatSendsTooLongAMessageIsCutOff) {
    RawPeer peer{folder / "publish", "PUB"};
    peer.send_frame(std::string("\xFE\xFF\0\0\x07\0\0\0", 8) + std::string(max_frame_size - 7, 'x'));
    EXPECT_TRUE(peer.is_cut_off());
}

TEST_F(HostilePeerTest, APeerThatSubscribesToALongPrefixIsCutOff) {
    RawPeer peer{folder / "subscribe", "SUB"};
    peer.send_frame(std::string(1, '\x01').append(300, 'x'));
    EXPECT_TRUE(peer.is_cut_off());
}

TEST_F(HostilePeerTest, APeerWithTooManySubscriptionsIsCutOffAndCostsLittleMemory) {
    auto const before = test::kilobytes(broker->pid(), "RssAnon:");
    RawPeer peer{folder / "subscribe", "SUB"};
    for (int number = 0; number < 80'000; ++number) {
        auto prefix = std::to_string(number);
        peer.send_frame('\x01' + prefix.append(200 - prefix.size(), 'x'));
    }
    EXPECT_TRUE(peer.is_cut_off());
    auto const grown = test::kilobytes(broker->pid(), "RssAnon:") - before;
    fmt::print("the broker has grown by {} kB\n", grown);
    if (!test::sanitized) {
        EXPECT_LT(grown, 4096);
    }
}

TEST_F(HostilePeerTest, APeerWithTooManySubscriptionsThroughZeroMqIsCutOffToo) {
    zmq::context_t context{1};
    zmq::socket_t hostile{context, zmq::socket_type::sub};
    hostile.set(zmq::sockopt::linger, 0);
    zmq::socket_t events{context, zmq::socket_type::pair};
    ASSERT_EQ(zmq_socket_monitor(hostile.handle(), "inproc://events", ZMQ_EVENT_DISCONNECTED), 0);
    events.set(zmq::sockopt::rcvtimeo, 20'000);
    events.connect("inproc://events");
    for (int number = 0; number < 500; ++number) {
        hostile.set(zmq::sockopt::subscribe, std::to_string(number));
    }
    hostile.connect("ipc://" + (folder / "subscribe").string());
    zmq::message_t event;
    EXPECT_TRUE(events.recv(event)) << "not cut off";
}

TEST_F(HostilePeerTest, AsManySubscriptionsAsAreAllowedAreServed) {
    RawPeer peer{folder / "subscribe", "SUB"};
    for (std::size_t number = 0; number < Subscriber::max_subscriptions; ++number) {
        for (int time = 0; time < 2; ++time) { // again is no more
            peer.send_frame(fmt::format("\x01{:04}", number));
        }
    }
    expect_served(peer, "0063");
}

TEST_F(HostilePeerTest, APeerThatDoesNotSpeakTheProtocolIsCutOff) {
    for (auto const* const name : {"publish", "subscribe"}) {
        for (char const noise : {'\0', '\xFF'}) {
            RawPeer peer{folder / name};
            peer.send(std::string(4096, noise));
            EXPECT_TRUE(peer.is_cut_off());
        }
        // Version 1 of the protocol has no greeting: these are frames.
        RawPeer{folder / name}.send(std::string(4096, '\xA5'));
    }
}

TEST_F(HostilePeerTest, MalformedSubscriptionsAndMessagesAgainstTheStreamAreHarmless) {
    RawPeer peer{folder / "subscribe", "SUB"};
    for (auto const& frame :
         {std::string{}, std::string(1, '\0'), std::string("\x01"), std::string("\x02"), std::string(5, '\0'),
          std::string("\0\0\0\0\0\0\0\0\0", 9), std::string(200, '\x01'), std::string(200, 'x'),
          "\x01" + std::string(200, 'x'), std::string(1, '\0') + std::string(200, 'x')}) {
        peer.send_frame(frame);
    }
    // Shows that the broker has read so far.
    peer.send_frame("\x01peer");
    expect_served(peer, "peer");
}

TEST_F(HostilePeerTest, SilenceAndAnUnfinishedFrameAreHarmless) {
    RawPeer const silent{folder / "publish"};
    for (auto const* const name : {"publish", "subscribe"}) {
        RawPeer peer{folder / name, name[0] == 'p' ? "PUB" : "SUB"};
        peer.send(std::string("\x02\0\0\0\0\0\0\x10\0\xFE\xFF", 11));
    }
}

TEST_F(HostilePeerTest, ManyConnectionsDoNotExhaustTheBroker) {
    EXPECT_EQ(broker->terminate(), 0);
    auto command = broker_command();
    command.argv = {"bash",     "-c",           "ulimit -Sn 64; exec \"$@\"", "bash", IPC_BROKER,
                    "--folder", folder.string()};
    start_broker(command);
    std::vector<RawPeer> crowd;
    crowd.reserve(300);
    while (crowd.size() < crowd.capacity()) {
        crowd.emplace_back(folder / "publish");
    }
    EXPECT_TRUE(test::wait_connected(*sender));
    EXPECT_TRUE(test::wait_connected(*receiver));
}

} // namespace
} // namespace xpon::ipc
