#include "event_source.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/failure.hpp"
#include "kit/fake_logger.hpp"

namespace xpon::service {
namespace {

using namespace std::chrono_literals;
using core::Error;
using testing::ElementsAre;
using testing::IsEmpty;

struct EventSourceTest : testing::Test {
    test::FakeLogger logger;
    EventSource source{"Reading the bus", 7, EventSource::AtRest::Ignored, logger};
    TimePoint now{1000h};
};

TEST_F(EventSourceTest, IsWaitedForWhileItIsQuiet) {
    EXPECT_EQ(source.due(), never);
    EXPECT_EQ(source.poll_fd(), 7);
}

TEST_F(EventSourceTest, OnceAnnouncedItIsAskedUntilItHasNothingMore) {
    source.announced();
    EXPECT_EQ(source.due(), at_once);
    EXPECT_EQ(source.poll_fd(), -1);
    source.answered(true);
    EXPECT_EQ(source.due(), at_once);
    source.answered(false);
    EXPECT_EQ(source.due(), never);
    EXPECT_EQ(source.poll_fd(), 7);
    EXPECT_THAT(logger.texts(), IsEmpty());
}

TEST_F(EventSourceTest, WithoutADescriptorItNeverHasAnything) {
    EventSource none{"Reading nothing", -1, EventSource::AtRest::Heard, logger};
    none.announced();
    EXPECT_EQ(none.due(), never);
    EXPECT_EQ(none.poll_fd(), -1);
}

TEST_F(EventSourceTest, AFailingOneRestsForLongerAndLongerAndIsLoggedOnce) {
    source.announced();
    constexpr std::chrono::seconds waits[] = {1s, 2s, 4s, 8s, 16s, 32s, 64s, 128s, 256s, 512s, 1h, 1h, 1h};
    for (auto const wait : waits) {
        source.failed(core::fail(Error::CommonError, "no bus"), now);
        EXPECT_EQ(source.due(), now + wait);
        EXPECT_EQ(source.poll_fd(), -1) << "its descriptor may stay readable, which would be a busy loop";
        now = source.due();
    }
    EXPECT_THAT(logger.texts(), ElementsAre("Reading the bus failed: Error: CommonError. Message: no bus."));
    EXPECT_EQ(logger.lines().at(0).level, core::log_failure);
}

TEST_F(EventSourceTest, AnnouncementsDoNotShortenItsRest) {
    source.announced();
    source.failed(core::fail(Error::CommonError, "no bus"), now);
    source.announced();
    EXPECT_EQ(source.due(), now + 1s);
}

TEST_F(EventSourceTest, AnnouncementsEndTheRestOfOneThatIsHeardAndItsNextRestIsLonger) {
    EventSource feed{"Reading the changes", 8, EventSource::AtRest::Heard, logger};
    feed.announced();
    EXPECT_EQ(feed.poll_fd(), -1);
    for (auto const wait : {1s, 2s, 4s}) {
        feed.failed(core::fail(Error::CommonError, "no disk"), now);
        EXPECT_EQ(feed.due(), now + wait);
        EXPECT_EQ(feed.poll_fd(), 8);
        feed.announced();
        EXPECT_EQ(feed.due(), at_once);
        EXPECT_EQ(feed.poll_fd(), -1);
    }
    feed.answered(false);
    EXPECT_EQ(feed.due(), never);
    EXPECT_THAT(logger.texts(),
                ElementsAre("Reading the changes failed: Error: CommonError. Message: no disk.",
                            "Reading the changes works again"));
}

TEST_F(EventSourceTest, SaysWhenItWorksAgainAndStartsOver) {
    source.announced();
    source.failed(core::fail(Error::CommonError, "no bus"), now);
    source.failed(core::fail(Error::CommonError, "no bus"), now);
    source.answered(true);
    source.answered(false);
    EXPECT_EQ(source.due(), never);
    source.failed(core::fail(Error::CommonError, "no bus"), now);
    EXPECT_EQ(source.due(), now + 1s);
    EXPECT_THAT(logger.texts(), ElementsAre("Reading the bus failed: Error: CommonError. Message: no bus.",
                                            "Reading the bus works again",
                                            "Reading the bus failed: Error: CommonError. Message: no bus."));
    EXPECT_EQ(logger.lines().at(1).level, core::log_routine);
}

TEST_F(EventSourceTest, EachNewReasonIsLogged) {
    source.announced();
    source.failed(core::fail(Error::CommonError, "locked"), now);
    source.failed(core::fail(Error::CommonError, "corrupt"), now);
    source.failed(core::fail(Error::CommonError, "corrupt"), now);
    EXPECT_EQ(source.due(), now + 4s);
    EXPECT_THAT(logger.texts(), ElementsAre("Reading the bus failed: Error: CommonError. Message: locked.",
                                            "Reading the bus failed: Error: CommonError. Message: corrupt."));
}

} // namespace
} // namespace xpon::service
