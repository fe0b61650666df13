#include "event_flag.hpp"

#include <cerrno>
#include <limits>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "kit/matchers.hpp"
#include "kit/wait_readable.hpp"

namespace xpon::service {
namespace {

using core::Error;
using test::IsError;
using test::IsOk;

TEST(EventFlag, IsRaisedOnceAndForAll) {
    EventFlag const flag;
    EXPECT_FALSE(flag.raised());
    EXPECT_THAT(flag.raise(), IsOk());
    EXPECT_TRUE(flag.raised());
    EXPECT_THAT(flag.raise(), IsOk());
    EXPECT_TRUE(flag.raised());
}

TEST(EventFlag, HandsOverWhatCameBeforeIt) {
    EventFlag const flag;
    int handed_over = 0; // watched by the thread sanitizer
    std::thread receiver{[&] {
        EXPECT_TRUE(test::wait_readable(flag.fd(), test::default_deadline));
        EXPECT_TRUE(flag.raised());
        EXPECT_EQ(handed_over, 1);
    }};
    handed_over = 1;
    EXPECT_THAT(flag.raise(), IsOk());
    receiver.join();
}

TEST(EventFlag, LeavesErrnoAloneEvenWhenItIsFull) {
    EventFlag const flag;
    errno = EXDEV;
    EXPECT_THAT(flag.raise(), IsOk());
    EXPECT_EQ(errno, EXDEV);

    std::uint64_t const fills_up = std::numeric_limits<std::uint64_t>::max() - 2;
    ASSERT_EQ(::write(flag.fd(), &fills_up, sizeof fills_up), ssize_t{sizeof fills_up});
    errno = EXDEV;
    EXPECT_THAT(flag.raise(), IsOk());
    EXPECT_EQ(errno, EXDEV);
    EXPECT_TRUE(flag.raised());
}

TEST(EventFlag, AWriteThatFailsIsAnErrorThatNeededNoMemory) {
    EventFlag const flag;
    core::UniqueFd const full{::open("/dev/full", O_WRONLY | O_CLOEXEC)};
    ASSERT_TRUE(full);
    ASSERT_EQ(::dup2(full.get(), flag.fd()), flag.fd());
    errno = EXDEV;
    EXPECT_THAT(flag.raise(), IsError(Error::CommonError, ""));
    EXPECT_EQ(errno, EXDEV);
}

TEST(EventFlag, IsClosedInTheProgramsThatAreStarted) {
    EventFlag const flag;
    EXPECT_NE(::fcntl(flag.fd(), F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_NE(::fcntl(flag.fd(), F_GETFL) & O_NONBLOCK, 0);
}

} // namespace
} // namespace xpon::service
