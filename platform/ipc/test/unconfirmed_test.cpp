#include "src/unconfirmed.hpp"

#include <gmock/gmock.h>

namespace xpon::ipc {
namespace {

using testing::ElementsAre;

std::vector<std::byte> frame(int number) {
    return {std::byte{1}, static_cast<std::byte>(number)};
}

MATCHER_P2(Sent, number, sent, "") {
    return arg.number == static_cast<std::uint64_t>(number) && arg.frame == frame(sent);
}

TEST(Unconfirmed, EachFrameIsThereOnceInTheOrderOfTheLastSending) {
    Unconfirmed unconfirmed{10};
    for (int const number : {1, 2, 1, 3}) {
        unconfirmed.add(frame(number));
    }
    EXPECT_THAT(unconfirmed.entries(), ElementsAre(Sent(12, 2), Sent(13, 1), Sent(14, 3)));
    EXPECT_EQ(unconfirmed.last_number(), 14U);
}

TEST(Unconfirmed, WhatWasSentAgainSinceIsNotConfirmed) {
    Unconfirmed unconfirmed{0};
    unconfirmed.add(frame(1));
    unconfirmed.add(frame(2));
    auto const number = unconfirmed.last_number();
    unconfirmed.add(frame(1));
    unconfirmed.confirm(number);
    EXPECT_THAT(unconfirmed.entries(), ElementsAre(Sent(3, 1)));
    unconfirmed.confirm(3);
    EXPECT_THAT(unconfirmed.entries(), testing::IsEmpty());
}

TEST(Unconfirmed, WhereThereIsNoRoomTheOldestGoes) {
    Unconfirmed unconfirmed{0};
    for (std::size_t number = 0; number < Unconfirmed::capacity; ++number) {
        EXPECT_TRUE(unconfirmed.has_room_for(frame(100)));
        unconfirmed.add(frame(static_cast<int>(number)));
    }
    EXPECT_FALSE(unconfirmed.has_room_for(frame(100)));
    EXPECT_TRUE(unconfirmed.has_room_for(frame(5)));
    unconfirmed.add(frame(100));
    EXPECT_EQ(unconfirmed.entries().size(), Unconfirmed::capacity);
    EXPECT_THAT(unconfirmed.entries().front(), Sent(2, 1));
}

} // namespace
} // namespace xpon::ipc
