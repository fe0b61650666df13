#include "xpon/ipc/message.hpp"

#include <bit>

#include <gmock/gmock.h>

#include "xpon/ipc/file_events.hpp"

namespace xpon::ipc {
namespace {

using testing::ElementsAreArray;
using testing::Field;
using testing::Optional;
using testing::ResultOf;
using testing::SizeIs;

std::vector<std::byte> bytes(std::initializer_list<int> values) {
    std::vector<std::byte> all;
    for (int const value : values) {
        all.push_back(static_cast<std::byte>(value));
    }
    return all;
}

/// Bytes that differ from their neighbours.
std::vector<std::byte> pattern(std::size_t length) {
    std::vector<std::byte> all(length);
    for (std::size_t index = 0; index < length; ++index) {
        all[index] = static_cast<std::byte>(index * 7 + index / 256);
    }
    return all;
}

TEST(Message, FileChangedNotificationIsThisByteSequence) {
    static_assert(std::endian::native == std::endian::little);
    EXPECT_THAT(
        encode(file_changed_header, payload_of(FileChange{0x11223344})),
        ElementsAreArray(bytes({0xFE, 0xFF, 0x00, 0x00, 0xD4, 0x30, 0xD5, 0x30, 0x44, 0x33, 0x22, 0x11})));
}

TEST(Message, AFrameIsTheHeaderThenThePayload) {
    Header const header{{0x04030201}, 0x0605, 0x0807};
    EXPECT_THAT(encode(header, {}), ElementsAreArray(bytes({1, 2, 3, 4, 5, 6, 7, 8})));
    EXPECT_THAT(encode(header, bytes({9})), ElementsAreArray(bytes({1, 2, 3, 4, 5, 6, 7, 8, 9})));
}

TEST(Message, FramesShorterThanAHeaderAreNoMessage) {
    for (std::size_t length = 0; length < sizeof(Header); ++length) {
        EXPECT_EQ(decode(pattern(length)), std::nullopt) << length;
    }
}

TEST(Message, EveryLongerFrameIsAMessageThatEncodesToItself) {
    for (std::size_t length = sizeof(Header); length <= 600; ++length) {
        auto const frame = pattern(length);
        EXPECT_THAT(decode(frame), Optional(Field(&Message::payload, SizeIs(length - sizeof(Header)))));
        EXPECT_THAT(
            decode(frame),
            Optional(ResultOf([](Message const& message) { return encode(message.header, message.payload); },
                              frame)));
    }
}

TEST(Message, TheLargestPayloadMakesTheLargestFrame) {
    auto const frame = encode({everybody, 1, 2}, pattern(max_payload_size));
    EXPECT_EQ(frame.size(), max_frame_size);
    EXPECT_EQ(decode(frame), (Message{{everybody, 1, 2}, pattern(max_payload_size)}));
}

TEST(Message, AHeaderAloneIsAMessageWithoutPayload) {
    EXPECT_EQ(decode(bytes({0xFE, 0xFF, 0, 0, 0xD4, 0x30, 0xD5, 0x30})), (Message{file_changed_header, {}}));
}

} // namespace
} // namespace xpon::ipc
