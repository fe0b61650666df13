#include "xpon/log_config/rsh/inotify_records.hpp"

#include <cstring>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <sys/inotify.h>

namespace xpon::log_config {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// A record as the kernel writes it: the header, then the name padded with zeros to `field`.
std::string record(std::uint32_t mask, std::string name, std::size_t field, int watch = 1) {
    inotify_event header{};
    header.wd = watch;
    header.mask = mask;
    header.len = static_cast<std::uint32_t>(field);
    name.resize(field);
    return std::string{reinterpret_cast<char const*>(&header), sizeof header} + name;
}

std::vector<std::string> names_in(std::span<char const> buffer) {
    std::vector<std::string> names;
    while (auto const taken = take_inotify_record(buffer)) {
        names.push_back(taken->has_name ? std::string{taken->name} : "-");
    }
    return names;
}

TEST(InotifyRecords, ComeOneAfterTheOther) {
    auto const buffer = record(IN_CREATE, "3", 16) + record(IN_CLOSE_WRITE, "14", 16);
    std::span<char const> unread{buffer};
    auto const first = take_inotify_record(unread);
    auto const second = take_inotify_record(unread);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->mask, std::uint32_t{IN_CREATE});
    EXPECT_EQ(first->name, "3");
    EXPECT_EQ(second->mask, std::uint32_t{IN_CLOSE_WRITE});
    EXPECT_EQ(second->name, "14");
    EXPECT_FALSE(take_inotify_record(unread));
}

TEST(InotifyRecords, AnEventOnTheDirectoryItselfHasNoName) {
    EXPECT_THAT(names_in(record(IN_CLOSE_NOWRITE, "", 0) + record(IN_CREATE, "3", 16)),
                ElementsAre("-", "3"));
}

TEST(InotifyRecords, AQueueOverflowHasNoNameAndNoWatch) {
    EXPECT_THAT(names_in(record(IN_Q_OVERFLOW, "", 0, -1)), ElementsAre("-"));
}

TEST(InotifyRecords, ANameWithoutItsZeroEndsWithItsField) {
    EXPECT_THAT(names_in(record(IN_CREATE, "0123456789abcdef", 16) + record(IN_CREATE, "x", 16)),
                ElementsAre("0123456789abcdef", "x"));
}

TEST(InotifyRecords, ATruncatedLastRecordIsLeftOut) {
    auto const buffer = record(IN_CREATE, "3", 16) + record(IN_CREATE, "4", 16);
    for (std::size_t missing = 1; missing < 32; ++missing) {
        EXPECT_THAT(names_in(std::span<char const>{buffer}.first(buffer.size() - missing)), ElementsAre("3"))
            << missing;
    }
}

TEST(InotifyRecords, ALengthBeyondTheBufferIsNotFollowed) {
    auto buffer = record(IN_CREATE, "3", 16);
    std::uint32_t const huge = 0xFFFFFFF0;
    std::memcpy(buffer.data() + offsetof(inotify_event, len), &huge, sizeof huge);
    EXPECT_THAT(names_in(buffer), IsEmpty());
}

TEST(InotifyRecords, NeedNoAlignment) {
    auto const one = record(IN_CREATE, "3", 5) + record(IN_CREATE, "4", 16);
    auto const shifted = "x" + one;
    EXPECT_THAT(names_in(std::span<char const>{shifted}.subspan(1)), ElementsAre("3", "4"));
}

} // namespace
} // namespace xpon::log_config
