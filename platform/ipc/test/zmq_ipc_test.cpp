#include "xpon/ipc/zmq_ipc.hpp"

#include <atomic>
#include <csignal>
#include <set>
#include <sstream>
#include <thread>

#include <malloc.h>
#include <zmq.hpp>

#include "core/blocked_signals.hpp"
#include "kit/names_in.hpp"
#include "kit/process_status.hpp"
#include "test/running_bus.hpp"
#include "test/value_of.hpp"

namespace xpon::ipc {
namespace {

using core::Error;
using std::chrono::steady_clock;
using test::IsError;
using test::IsOk;
using test::next_message;
using test::wait_connected;
using testing::ThrowsMessage;

class ZmqIpcTest : public BusTest {};

std::vector<std::byte> text(std::string const& characters) {
    auto const bytes = std::as_bytes(std::span{characters});
    return {bytes.begin(), bytes.end()};
}

std::set<std::string> threads() {
    return test::names_in("/proc/self/task");
}

TEST_F(ZmqIpcTest, AMessageForEverybodyReachesEverybody) {
    start_broker();
    auto const first = new_connected_endpoint();
    auto const second = new_connected_endpoint();
    auto const third = new_connected_endpoint();
    EXPECT_THAT(first->send(to(everybody), text("hello")), IsOk());
    for (auto const& endpoint : {first, second, third}) {
        EXPECT_EQ(next_message(*endpoint), (Message{to(everybody), text("hello")}));
    }
}

TEST_F(ZmqIpcTest, AnAddressedMessageReachesItsAddresseeAlone) {
    start_broker();
    auto const sender = new_connected_endpoint();
    auto const addressee = new_connected_endpoint({4711});
    auto const other = new_connected_endpoint();
    EXPECT_EQ(addressee->address(), Address{4711});
    EXPECT_THAT(sender->send({{4711}, some_event, 9}, text("yours")), IsOk());
    EXPECT_THAT(sender->send(to(everybody, last_event), {}), IsOk());
    EXPECT_EQ(next_message(*addressee), (Message{{{4711}, some_event, 9}, text("yours")}));
    EXPECT_EQ(next_message(*addressee), (Message{to(everybody, last_event), {}}));
    EXPECT_EQ(next_message(*other), (Message{to(everybody, last_event), {}}));
    EXPECT_EQ(next_message(*sender), (Message{to(everybody, last_event), {}}));
}

TEST_F(ConnectedTest, MessagesOfOneSenderArriveInOrder) {
    for (std::uint16_t event = 100; event < 600; ++event) {
        ASSERT_THAT(sender->send(to(receiver->address(), event), {}), IsOk());
    }
    for (std::uint16_t event = 100; event < 600; ++event) {
        ASSERT_EQ(next_message(*receiver), (Message{to(receiver->address(), event), {}}));
    }
    EXPECT_THAT(receiver->receive().value(), testing::Eq(std::nullopt));
}

TEST_F(ZmqIpcTest, TheFileChangedNotificationIsOneFrameOfTheseBytes) {
    start_broker();
    auto const sender = new_connected_endpoint();
    zmq::context_t context{1};
    zmq::socket_t listener{context, zmq::socket_type::sub};
    listener.set(zmq::sockopt::subscribe, std::string_view{"\xFE\xFF\0\0", 4});
    listener.set(zmq::sockopt::rcvtimeo, 20);
    listener.connect("ipc://" + (folder / "subscribe").string());
    zmq::message_t frame;
    ASSERT_TRUE(test::wait_until([&] {
        EXPECT_THAT(sender->send(file_changed_header, payload_of(FileChange{38})), IsOk());
        return listener.recv(frame).has_value();
    }));
    EXPECT_EQ(frame.to_string(), std::string("\xFE\xFF\x00\x00\xD4\x30\xD5\x30\x26\x00\x00\x00", 12));
    EXPECT_FALSE(frame.more());
}

TEST_F(ConnectedTest, TheLargestPayloadGoesThroughAndALargerOneIsRefused) {
    std::vector<std::byte> payload(max_payload_size + 1, std::byte{42});
    EXPECT_THAT(sender->send(to(receiver->address()), payload),
                IsError(Error::InvalidInputArg,
                        "TEST: event 7 has a payload of 65529 bytes, at most 65528 are allowed"));
    payload.pop_back();
    EXPECT_THAT(sender->send(to(receiver->address()), payload), IsOk());
    EXPECT_EQ(next_message(*receiver), (Message{to(receiver->address()), payload}));
}

TEST_F(ZmqIpcTest, WhatWaitsInAnEndpointTakesLittleMemoryAndIsNotLost) {
    start_broker();
    auto const sender = new_connected_endpoint();
    auto const reader = new_connected_endpoint();
    auto const idler = new_connected_endpoint();
    std::vector<std::byte> const payload(60'000);
    constexpr std::uint16_t first = 100;
    constexpr std::uint16_t last = 599;
    auto const in_use = [] { return mallinfo2().uordblks; };
    auto const before = in_use();
    for (std::uint16_t event = first; event <= last; ++event) {
        ASSERT_THAT(sender->send(to(everybody, event), payload), IsOk());
        // What two others have taken, the broker has sent to the third as well, as far as that takes it.
        ASSERT_TRUE(test::wait_event(*reader, event));
        ASSERT_TRUE(test::wait_event(*sender, event));
    }
    EXPECT_LT(in_use(), before + 4'000'000) << "of 30 million bytes";
    for (std::uint16_t event = first; event <= last; ++event) {
        ASSERT_EQ(next_message(*idler), (Message{to(everybody, event), payload}));
    }
}

TEST_F(ZmqIpcTest, WhatIsSentWithoutABrokerGoesOutAtTheConnectionEachMessageOnce) {
    auto const sender = new_endpoint();
    for (int count = 0; count < 5000; ++count) {
        ASSERT_THAT(sender->send(to(everybody), text("repeated")), IsOk()) << count;
    }
    EXPECT_THAT(sender->send(to(everybody), text("other")), IsOk());
    EXPECT_THAT(sender->send(to(everybody), text("repeated")), IsOk());
    start_broker();
    expect_connected_next(*sender);
    EXPECT_EQ(next_message(*sender), (Message{to(everybody), text("other")}));
    EXPECT_EQ(next_message(*sender), (Message{to(everybody), text("repeated")}));
    expect_traffic(*sender, *sender);
}

TEST_F(ZmqIpcTest, WithoutABrokerALimitedNumberOfMessagesIsKeptAndNoMoreAccepted) {
    auto const sender = new_endpoint();
    static constexpr std::uint16_t limit = 64;
    for (std::uint16_t event = 0; event < limit; ++event) {
        ASSERT_THAT(sender->send(to(everybody, event), {}), IsOk()) << event;
    }
    EXPECT_THAT(sender->send(to(everybody, limit), {}),
                IsError(Error::Overflow, "TEST: event 64 not sent, 64 messages wait for the message broker"));
    EXPECT_THAT(sender->send(to(everybody, 0), {}), IsOk());
    start_broker();
    EXPECT_TRUE(wait_connected(*sender));
    for (std::uint16_t event = 1; event < limit; ++event) {
        EXPECT_EQ(next_message(*sender), (Message{to(everybody, event), {}}));
    }
    EXPECT_EQ(next_message(*sender), (Message{to(everybody, 0), {}}));
    EXPECT_THAT(sender->send(to(everybody, limit), {}), IsOk());
}

/// The next message for `receiver` with this event, while the sender, too, takes what comes in.
bool hears(IIpc& receiver, std::uint16_t event, IIpc& sender) {
    return test::wait_until([&] {
        while (sender.receive().value()) {
        }
        return test::wait_event(receiver, event, std::chrono::milliseconds{20});
    });
}

TEST_F(ZmqIpcTest, AReceiverThatReachesANewBrokerBeforeTheSenderIsStillTold) {
    start_broker();
    auto const sender = new_connected_endpoint();
    for (std::uint16_t event = 100; event < 120; ++event) {
        kill_broker();
        if (event % 2 == 0) { // the sender may not have noticed yet
            ASSERT_THAT(sender->send(to(everybody, event), {}), IsOk());
        }
        start_broker();
        auto const receiver = new_connected_endpoint();
        if (event % 2 != 0) {
            ASSERT_THAT(sender->send(to(everybody, event), {}), IsOk());
        }
        ASSERT_TRUE(hears(*receiver, event, *sender)) << event;
    }
}

TEST_F(ZmqIpcTest, WhatIsSentWhileTheBrokerDiesIsNotLostEither) {
    start_broker();
    auto const sender = new_connected_endpoint();
    for (int round = 0; round < 5; ++round) {
        std::atomic<std::uint16_t> last{100};
        std::jthread sending{[&](std::stop_token const& end) {
            // Few enough to be kept, were it with no broker from the beginning.
            while (!end.stop_requested() && last < 160) {
                EXPECT_THAT(sender->send(to(everybody, ++last), {}), IsOk());
                std::this_thread::yield();
            }
        }};
        ASSERT_TRUE(test::wait_until([&] { return last > 120; }));
        kill_broker();
        sending.request_stop();
        sending.join();
        start_broker();
        auto const receiver = new_connected_endpoint();
        ASSERT_TRUE(hears(*receiver, last, *sender)) << round;
    }
}

TEST_F(ZmqIpcTest, WhatHasPassedTheBrokerIsNotSentAgain) {
    start_broker();
    auto const sender = new_connected_endpoint();
    EXPECT_THAT(sender->send(to(everybody), {}), IsOk());
    // What confirms the first message has come before the second.
    EXPECT_TRUE(test::wait_event(*sender, some_event));
    expect_traffic(*sender, *sender);
    EXPECT_THAT(sender->receive().value(), testing::Eq(std::nullopt));
    kill_broker();
    start_broker();
    auto const receiver = new_connected_endpoint();
    EXPECT_TRUE(wait_connected(*sender));
    EXPECT_THAT(sender->send(to(everybody, last_event), {}), IsOk());
    EXPECT_EQ(next_message(*receiver), (Message{to(everybody, last_event), {}}));
}

TEST_F(ConnectedTest, EndpointsFindANewBrokerByThemselvesAndSaySo) {
    for (int const signal : {SIGKILL, SIGTERM, SIGKILL}) {
        broker->kill(signal);
        ASSERT_TRUE(broker->wait());
        start_broker();
        EXPECT_TRUE(wait_connected(*receiver));
        EXPECT_TRUE(wait_connected(*sender));
        EXPECT_THAT(sender->send(to(everybody, last_event), {}), IsOk());
        EXPECT_TRUE(test::wait_event(*receiver, last_event));
        EXPECT_TRUE(test::wait_event(*sender, last_event));
    }
}

TEST_F(ConnectedTest, AfterTheBrokersDeathSendingSucceedsAndTheMessageIsKept) {
    kill_broker();
    // At first the endpoint may not have noticed yet.
    EXPECT_TRUE(test::wait_until([&] {
        for (int count = 0; count < 2000; ++count) {
            if (!sender->send(to(everybody), {}).has_value()) {
                return false;
            }
        }
        return true;
    }));
    start_broker();
    expect_connected_next(*sender);
    EXPECT_EQ(next_message(*sender), (Message{to(everybody), {}}));
    EXPECT_TRUE(wait_connected(*receiver));
    EXPECT_THAT(sender->send(to(receiver->address(), last_event), {}), IsOk());
    EXPECT_TRUE(test::wait_event(*receiver, last_event));
}

/// How many connections the broker has at one of its sockets.
std::ptrdiff_t connections(std::filesystem::path const& socket) {
    std::istringstream table{test::read_file("/proc/net/unix")};
    std::ptrdiff_t count = 0;
    for (std::string line; std::getline(table, line);) {
        // state 03: connected
        count += line.ends_with(socket.string()) && line.find(" 03 ") != std::string::npos ? 1 : 0;
    }
    return count;
}

TEST_F(ZmqIpcTest, ARestartWhileNobodyCalledReceiveIsNoticedAfterwards) {
    start_broker();
    auto const endpoint = new_connected_endpoint();
    kill_broker();
    start_broker();
    ASSERT_TRUE(test::wait_until(
        [&] { return connections(folder / "publish") == 1 && connections(folder / "subscribe") == 1; }));
    expect_connected_next(*endpoint);
}

TEST_F(ZmqIpcTest, TwoEndpointsWithTheSameAddressAreBothConnected) {
    start_broker();
    auto const first = new_connected_endpoint({5});
    auto const second = new_connected_endpoint({5});
    EXPECT_THAT(second->send(to({5}, last_event), {}), IsOk());
    EXPECT_TRUE(test::wait_event(*first, last_event));
    EXPECT_TRUE(test::wait_event(*second, last_event));
}

TEST_F(ConnectedTest, AFrozenBrokerMakesSendFailInsteadOfWaitAndEverythingGoesOnAfterwards) {
    broker->kill(SIGSTOP);
    core::Result<void> sent = core::success();
    steady_clock::duration longest{};
    for (int count = 0; sent.has_value() && count < 1'000'000; ++count) {
        auto const begin = steady_clock::now();
        sent = sender->send(to({1}), {});
        longest = std::max(longest, steady_clock::now() - begin);
    }
    EXPECT_THAT(
        sent, IsError(Error::Overflow, "TEST: event 7 not sent, 1000 messages wait for the message broker"));
    EXPECT_LT(longest, std::chrono::seconds{2});

    broker->kill(SIGCONT);
    EXPECT_TRUE(test::wait_until([&] { return sender->send(to(receiver->address()), {}).has_value(); }));
    EXPECT_EQ(next_message(*receiver), (Message{to(receiver->address()), {}}));
    expect_traffic(*receiver, *sender);
}

TEST_F(ZmqIpcTest, AnEndpointThatConnectsToAFrozenBrokerIsConnectedWhenThatGoesOn) {
    start_broker();
    broker->kill(SIGSTOP);
    auto const endpoint = new_endpoint();
    EXPECT_THAT(endpoint->send(to(everybody), {}), IsOk());
    broker->kill(SIGCONT);
    EXPECT_TRUE(wait_connected(*endpoint));
}

TEST_F(ConnectedTest, ABrokerThatWasFrozenWithFullQueuesAndThenKilledIsReplaced) {
    broker->kill(SIGSTOP);
    while (sender->send(to({1}), {}).has_value()) {
    }
    kill_broker();
    start_broker();
    expect_connected_next(*sender);
    expect_connected_next(*receiver);
    expect_traffic(*sender, *receiver);
}

TEST_F(ZmqIpcTest, TheEndDoesNotWaitForMessagesThatNobodyTakes) {
    start_broker();
    auto endpoint = new_connected_endpoint();
    broker->kill(SIGSTOP);
    while (endpoint->send(to({1}), {}).has_value()) {
    }
    auto const begin = steady_clock::now();
    endpoint.reset();
    EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds{2});
}

TEST_F(ConnectedTest, WhatWasSentJustBeforeTheEndStillArrives) {
    EXPECT_THAT(sender->send(to(receiver->address()), text("last words")), IsOk());
    sender.reset();
    EXPECT_EQ(next_message(*receiver), (Message{to(receiver->address()), text("last words")}));
}

TEST_F(ConnectedTest, ManyThreadsSendAtOnce) {
    static constexpr std::uint16_t thread_count = 8;
    static constexpr std::uint16_t messages_each = 100;
    {
        std::vector<std::jthread> senders;
        senders.reserve(thread_count);
        for (std::uint16_t thread = 0; thread < thread_count; ++thread) {
            senders.emplace_back([&, thread] {
                for (std::uint16_t number = 0; number < messages_each; ++number) {
                    EXPECT_THAT(sender->send({receiver->address(), thread, number}, text("payload")), IsOk());
                }
            });
        }
        std::array<std::uint16_t, thread_count> next{};
        for (int count = 0; count < thread_count * messages_each; ++count) {
            auto const message = value_of(next_message(*receiver));
            EXPECT_EQ(message.header.reply, next.at(message.header.event)++);
            EXPECT_EQ(message.payload, text("payload"));
        }
    }
}

TEST_F(ZmqIpcTest, OneThreadReceivesWhileOthersSend) {
    start_broker();
    auto const endpoint = new_connected_endpoint();
    std::jthread const receiving{[&] { EXPECT_TRUE(test::wait_event(*endpoint, last_event)); }};
    for (int count = 0; count < 500; ++count) {
        EXPECT_THAT(endpoint->send(to(endpoint->address()), {}), IsOk());
    }
    EXPECT_THAT(endpoint->send(to(endpoint->address(), last_event), {}), IsOk());
}

TEST_F(ZmqIpcTest, ItsThreadsTakeNoSignals) {
    auto const before = threads();
    auto const endpoint = new_endpoint();
    int found = 0;
    for (auto const& thread : threads()) {
        if (!before.contains(thread)) {
            ++found;
            EXPECT_EQ(test::blocked_signals("/proc/self/task/" + thread) & test::every_signal,
                      test::every_signal);
        }
    }
    EXPECT_EQ(found, 2);
}

std::atomic<int> signals_in_this_thread{0};
std::atomic<int> signals_elsewhere{0};
std::atomic<pid_t> this_thread{0};

TEST_F(ZmqIpcTest, EvenInTheFirstMomentItsThreadsTakeNoSignals) {
    start_broker();
    this_thread = gettid();
    struct sigaction handling{};
    struct sigaction before{};
    handling.sa_handler = [](int) {
        ++(gettid() == this_thread ? signals_in_this_thread : signals_elsewhere);
    };
    ASSERT_EQ(sigaction(SIGUSR1, &handling, &before), 0);
    {
        std::optional<core::BlockedSignals> blocked{std::in_place};
        std::jthread const storm{[](std::stop_token const& end) {
            while (!end.stop_requested()) {
                kill(getpid(), SIGUSR1);
            }
        }};
        blocked.reset();
        for (int count = 0; count < 50; ++count) {
            auto const endpoint = new_connected_endpoint();
            EXPECT_THAT(endpoint->send(to(everybody), {}), IsOk());
        }
    }
    sigaction(SIGUSR1, &before, nullptr);
    EXPECT_GT(signals_in_this_thread, 0);
    EXPECT_EQ(signals_elsewhere, 0);
}

TEST_F(ZmqIpcTest, LeavesNoThreadAndNoDescriptorBehind) {
    start_broker();
    auto const threads_before = threads().size();
    new_connected_endpoint(); // the first one also opens what the process keeps
    auto const descriptors_before = test::names_in("/proc/self/fd").size();
    for (int count = 0; count < 50; ++count) {
        auto const endpoint = new_connected_endpoint();
        EXPECT_THAT(endpoint->send(to(everybody), {}), IsOk());
    }
    // A joined thread stays listed for a moment.
    EXPECT_TRUE(test::wait_until([&] { return threads().size() == threads_before; })) << threads().size();
    EXPECT_EQ(test::names_in("/proc/self/fd").size(), descriptors_before);
}

TEST_F(ZmqIpcTest, EachEndpointGetsAnAddressOfItsOwn) {
    auto const first = new_endpoint();
    auto const second = new_endpoint();
    EXPECT_GT(first->address().value, 0xFFFFU);
    EXPECT_GT(second->address().value, 0xFFFFU);
    EXPECT_NE(first->address(), second->address());
}

TEST_F(ZmqIpcTest, EverybodyIsNobodysAddress) {
    EXPECT_THAT([&] { new_endpoint(everybody); },
                ThrowsMessage<std::invalid_argument>("TEST: 0xfffe is everybody's address"));
}

TEST_F(ZmqIpcTest, AFolderTooLongForASocketIsRefused) {
    std::filesystem::path const too_long = "/tmp/" + std::string(100, 'x');
    EXPECT_THAT([&] { make_zmq_ipc(any_address, "TEST", too_long); },
                ThrowsMessage<std::runtime_error>(
                    "TEST: no endpoint on the message bus in " + too_long.string() + " (the path " +
                    too_long.string() + "/publish has 113 bytes, a socket's may have at most 107)"));
}

TEST_F(ZmqIpcTest, TheLongestFolderThatFitsIsServed) {
    // FOLDER/subscribe with 107 bytes
    auto const longest =
        folder.string() + std::string(107 - sizeof "/subscribe" + 1 - folder.string().size(), 'x');
    start_broker({.argv = {IPC_BROKER, "--folder", longest}, .environment = {notifications.environment()}});
    auto const endpoint = make_zmq_ipc(any_address, "TEST", longest);
    EXPECT_TRUE(wait_connected(*endpoint));
}

TEST_F(ZmqIpcTest, ARelativeFolderIsFoundFromWhereTheProgramWas) {
    auto const elsewhere = std::filesystem::current_path();
    std::filesystem::current_path(folder.parent_path());
    auto const endpoint = make_zmq_ipc(any_address, "TEST", folder.filename());
    std::filesystem::current_path(elsewhere);
    start_broker();
    EXPECT_TRUE(wait_connected(*endpoint));
}

} // namespace
} // namespace xpon::ipc
