#include "xpon/ipc/payload.hpp"

#include <gmock/gmock.h>

#include "xpon/ipc/file_events.hpp"

namespace xpon::ipc {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

std::vector<std::byte> zeros(std::size_t length) {
    return std::vector<std::byte>(length);
}

TEST(Payload, ARecordTravelsAsItsOwnBytes) {
    EXPECT_THAT(payload_of(FileAnswer{0x04030201, 2}),
                ElementsAre(std::byte{1}, std::byte{2}, std::byte{3}, std::byte{4}, std::byte{2},
                            std::byte{0}, std::byte{0}, std::byte{0}));
    EXPECT_EQ(record_in<FileAnswer>(payload_of(FileAnswer{38, 13})), (FileAnswer{38, 13}));
}

TEST(Payload, OnlyTheExactLengthIsARecord) {
    for (std::size_t length = 0; length <= 64; ++length) {
        EXPECT_EQ(record_in<FileChange>(zeros(length)).has_value(), length == 4) << length;
        EXPECT_EQ(record_in<FileAnswer>(zeros(length)).has_value(), length == 8) << length;
        EXPECT_EQ(record_in<LastAnswersQuery>(zeros(length)).has_value(), length == 4) << length;
    }
}

TEST(Payload, SeveralRecordsFollowOneAnother) {
    std::vector<LastAnswer> const answers{{1, 0, 1'700'000'000'000}, {38, 2, 1'700'000'000'001}};
    auto const payload = payload_of_all(std::span{answers});
    EXPECT_EQ(payload.size(), 32U);
    EXPECT_EQ(records_in<LastAnswer>(payload), answers);
}

TEST(Payload, OnlyWholeRecordsAreRead) {
    EXPECT_THAT(records_in<LastAnswer>({}), Optional(IsEmpty()));
    for (std::size_t length = 1; length <= 64; ++length) {
        EXPECT_EQ(records_in<LastAnswer>(zeros(length)).has_value(), length % 16 == 0) << length;
    }
}

} // namespace
} // namespace xpon::ipc
