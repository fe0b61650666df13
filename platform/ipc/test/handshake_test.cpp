#include "src/handshake.hpp"

#include <gmock/gmock.h>

#include "xpon/ipc/event_numbers.hpp"
#include "xpon/ipc/payload.hpp"

namespace xpon::ipc {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

using Frame = Handshake::Frame;

constexpr Address own{77};

Frame frame(std::size_t number) {
    return encode({everybody, static_cast<std::uint16_t>(number), 0}, {});
}

Frame confirmation(std::uint64_t number) {
    return encode({own, confirmation_event, 0}, payload_of(number));
}

Frame const greeting = encode({own, connected_event, 0}, {});

class HandshakeTest : public testing::Test {
  protected:
    void notice(std::byte kind, Address address = own) {
        auto bytes = payload_of(address);
        bytes.insert(bytes.begin(), kind);
        handshake.take_notice(bytes);
    }
    void connect() { notice(std::byte{1}); }
    void disconnect() { notice(std::byte{0}); }

    void send(std::initializer_list<std::size_t> numbers) {
        for (auto const number : numbers) {
            handshake.sent(frame(number));
        }
    }

    bool take(Frame const& arrived) { return handshake.take_confirmation(*decode(arrived)); }

    /// What is sent until nothing is due, or until the queue has taken this many frames.
    std::vector<Frame> due(std::size_t room = 1000) {
        std::vector<Frame> sent;
        while (handshake.send_due([&](std::span<std::byte const> bytes) {
            if (sent.size() == room) {
                return false;
            }
            sent.emplace_back(bytes.begin(), bytes.end());
            return true;
        })) {
        }
        return sent;
    }

    Handshake handshake{own, 10};
};

TEST_F(HandshakeTest, NothingIsSentBeforeTheOwnSubscriptionComesBack) {
    send({1});
    notice(std::byte{1}, everybody);
    notice(std::byte{1}, {78});
    handshake.take_notice({});
    EXPECT_THAT(due(), IsEmpty());
    connect();
    EXPECT_THAT(due(), ElementsAre(greeting, frame(1), confirmation(11)));
    EXPECT_THAT(due(), IsEmpty()) << "one confirmation is under way";
}

TEST_F(HandshakeTest, EachFrameIsSentAgainOnceInTheOrderOfTheLastSending) {
    send({1, 2, 1, 3});
    connect();
    EXPECT_THAT(due(), ElementsAre(greeting, frame(2), frame(1), frame(3), confirmation(14)));
}

TEST_F(HandshakeTest, WhatIsConfirmedIsNotSentAgain) {
    connect();
    send({1, 2});
    EXPECT_THAT(due(), ElementsAre(greeting, frame(1), frame(2), confirmation(12)));
    send({1}); // after the confirmation was sent
    EXPECT_THAT(due(), IsEmpty());
    EXPECT_TRUE(take(confirmation(12)));
    EXPECT_THAT(due(), ElementsAre(confirmation(13)));
    connect();
    EXPECT_THAT(due(), ElementsAre(greeting, frame(1), confirmation(13)));
    EXPECT_TRUE(take(confirmation(13)));
    connect();
    EXPECT_THAT(due(), ElementsAre(greeting));
}

TEST_F(HandshakeTest, WhatAModuleSaidOfItsFileIsNotSentAgain) {
    for (std::size_t number = 0; number < Handshake::capacity; ++number) {
        send({number});
    }
    EXPECT_TRUE(handshake.accepts(frame(file_changed_reply)));
    send({file_changed_reply, file_known_event});
    connect();
    auto const sent = due();
    EXPECT_EQ(sent.size(), Handshake::capacity + 2);
    EXPECT_THAT(sent, Not(Contains(frame(file_changed_reply))));
    EXPECT_THAT(sent, Not(Contains(frame(file_known_event))));
}

TEST_F(HandshakeTest, OnlyTheConfirmationThatIsAwaitedConfirms) {
    connect();
    send({1});
    due();
    EXPECT_TRUE(take(confirmation(12))) << "of another endpoint with this address";
    EXPECT_TRUE(take(encode({own, confirmation_event, 0}, {})));
    EXPECT_FALSE(take(greeting));
    EXPECT_FALSE(take(frame(1)));
    EXPECT_THAT(due(), IsEmpty()) << "the confirmation is still under way";
    connect();
    EXPECT_THAT(due(), ElementsAre(greeting, frame(1), confirmation(11)));
}

TEST_F(HandshakeTest, AFullQueueDelaysTheGreetingAndTheConfirmation) {
    send({1});
    connect();
    EXPECT_THAT(due(1), ElementsAre(greeting));
    EXPECT_THAT(due(2), ElementsAre(greeting, frame(1)));
    EXPECT_THAT(due(), ElementsAre(confirmation(11)));
}

TEST_F(HandshakeTest, WithoutAConnectionALimitedNumberOfFramesIsAccepted) {
    for (std::size_t number = 0; number < Handshake::capacity; ++number) {
        EXPECT_TRUE(handshake.accepts(frame(100)));
        send({number});
    }
    EXPECT_FALSE(handshake.accepts(frame(100)));
    EXPECT_TRUE(handshake.accepts(frame(5)));
    connect();
    EXPECT_TRUE(handshake.accepts(frame(100)));
    send({100}); // the oldest goes
    auto const sent = due();
    EXPECT_EQ(sent.size(), Handshake::capacity + 2);
    EXPECT_EQ(sent.at(1), frame(1));
    disconnect();
    EXPECT_FALSE(handshake.accepts(frame(101)));
    EXPECT_THAT(due(), IsEmpty());
}

} // namespace
} // namespace xpon::ipc
