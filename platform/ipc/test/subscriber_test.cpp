#include "broker/subscriber.hpp"

#include <string>

#include <fmt/format.h>
#include <gmock/gmock.h>

namespace xpon::ipc {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::byte> bytes(std::string const& text) {
    auto const all = std::as_bytes(std::span{text});
    return {all.begin(), all.end()};
}

std::string const greeting = std::string("\xFF\0\0\0\0\0\0\0\1\x7F\3\1NULL", 16) + std::string(64 - 16, '\0');
std::string const ready("\4\x19\5READY\x0BSocket-Type\0\0\0\3SUB", 27);

std::string message(std::string const& content) {
    return std::string(1, '\0') + static_cast<char>(content.size()) + content;
}

std::string subscription(std::string const& prefix) {
    return message('\1' + prefix);
}

TEST(Subscriber, WantsWhatItHasSubscribedToHoweverItsBytesCome) {
    auto const all = greeting + ready + subscription("abcd") + message(std::string("\0abcd", 5)) +
                     subscription("wxyz") + subscription("") + message(std::string(1, '\0'));
    for (std::size_t piece = 1; piece <= all.size(); ++piece) {
        Subscriber subscriber;
        for (std::size_t at = 0; at < all.size(); at += piece) {
            EXPECT_TRUE(subscriber.take(bytes(all.substr(at, piece))));
        }
        EXPECT_TRUE(subscriber.wants(bytes("wxyz and more")));
        EXPECT_FALSE(subscriber.wants(bytes("wxy")));
        EXPECT_FALSE(subscriber.wants(bytes("abcd")));
        EXPECT_THAT(subscriber.take_notices(),
                    ElementsAre(bytes("\1abcd"), bytes({"\0abcd", 5}), bytes("\1wxyz")));
        subscriber.leave();
        EXPECT_THAT(subscriber.take_notices(), ElementsAre(bytes({"\0wxyz", 5})));
        EXPECT_FALSE(subscriber.wants(bytes("wxyz and more")));
    }
}

TEST(Subscriber, OnlySubscriptionsToAnAddressAreOfInterestToThoseWhoPublish) {
    Subscriber subscriber;
    EXPECT_TRUE(subscriber.take(
        bytes(greeting + ready + subscription("") + subscription("abc") + subscription("abcde"))));
    subscriber.leave();
    EXPECT_THAT(subscriber.take_notices(), IsEmpty());
}

TEST(Subscriber, OnceCutOffWithdrawsWhatItHadAndNoMore) {
    Subscriber subscriber;
    EXPECT_TRUE(subscriber.take(bytes(greeting + ready)));
    for (std::size_t number = 0; number < Subscriber::max_subscriptions; ++number) {
        EXPECT_TRUE(subscriber.take(bytes(subscription(fmt::format("{:04}", number)))));
    }
    EXPECT_EQ(subscriber.take_notices().size(), Subscriber::max_subscriptions);
    EXPECT_FALSE(subscriber.take(bytes(subscription("more"))));
    subscriber.leave();
    auto const withdrawn = subscriber.take_notices();
    EXPECT_EQ(withdrawn.size(), Subscriber::max_subscriptions);
    EXPECT_THAT(withdrawn, testing::Not(testing::Contains(bytes({"\0more", 5}))));
}

TEST(Subscriber, CannotWithdrawWhatItDoesNotHave) {
    Subscriber subscriber;
    EXPECT_TRUE(subscriber.take(bytes(greeting + ready + message(std::string("\0abcd", 5)))));
    EXPECT_THAT(subscriber.take_notices(), IsEmpty());
}

TEST(Subscriber, IsCutOffIfItBreaksTheProtocol) {
    auto const with = [](std::size_t at, char byte) {
        auto text = greeting;
        text.at(at) = byte;
        return text;
    };
    std::string many;
    for (int number = 0; number <= 64; ++number) {
        many += subscription(std::to_string(number));
    }
    for (auto const& text : {
             with(0, '\0'),
             with(9, '\0'),
             with(10, '\1'),
             with(12, 'C'),
             with(16, 'X'),
             greeting + subscription("before READY"),
             greeting + std::string("\4\5ERROR", 7),
             greeting + ready + std::string("\x08\0", 2),
             greeting + ready + std::string("\2\0\0\0\0\0\0\1\0", 9),
             greeting + ready + std::string("\2\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", 9),
             greeting + ready + many,
         }) {
        EXPECT_FALSE(Subscriber{}.take(bytes(text))) << testing::PrintToString(text);
    }
}

TEST(Subscriber, IsToldMessagesInFramesOfEitherLength) {
    auto const shorter = std::string(255, 'x');
    auto const longer = std::string(256, 'x');
    EXPECT_EQ(Subscriber::framed(bytes("")), bytes({"\0\0", 2}));
    EXPECT_EQ(Subscriber::framed(bytes(shorter)), bytes(std::string("\0\xFF", 2) + shorter));
    EXPECT_EQ(Subscriber::framed(bytes(longer)), bytes(std::string("\2\0\0\0\0\0\0\1\0", 9) + longer));
}

} // namespace
} // namespace xpon::ipc
