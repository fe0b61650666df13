#include "event_loop.hpp"

#include <stdexcept>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/failure.hpp"
#include "fakes.hpp"
#include "kit/fake_logger.hpp"
#include "kit/matchers.hpp"

namespace xpon::service {
namespace {

using namespace std::chrono_literals;
using core::Error;
using testing::ElementsAre;
using testing::IsEmpty;

/// The loop runs on the test's own thread: everything it will find is prepared, and the last expected event
/// ends it.
struct EventLoopTest : testing::Test {
    Journal journal;
    FakeService service{journal};
    ServiceCtx ctx;
    test::FakeLogger logger;
    FakeBus bus;
    FakeFeed feed;
    EventFlags flags;

    EventLoopTest() { std::ignore = flags.serving.raise(); }

    void end_after(std::size_t count) const {
        if (journal.entries().size() == count) {
            std::ignore = flags.finished.raise();
        }
    }

    /// Runs until this many events were handled, all well.
    std::vector<std::string> run_for(std::size_t count) {
        service.answer = [this, count](auto const&) {
            end_after(count);
            return core::success();
        };
        return run();
    }

    /// Runs until this many events were handled, each with this error.
    std::vector<std::string> run_failing(std::size_t count, core::ErrorPayload const& error) {
        service.answer = [this, count, error](auto const&) -> core::Result<void> {
            end_after(count);
            return error;
        };
        return run();
    }

    std::vector<std::string> run() {
        EventLoop{service, ctx, logger, &bus, &feed, flags}.run();
        return journal.entries();
    }
};

TEST_F(EventLoopTest, DeliversWhatWasThereBeforeServingBegan) {
    bus.push(ipc::master_change_event);
    bus.push(ipc::sync_event);
    feed.push({52, 58});
    EXPECT_THAT(run_for(3), testing::UnorderedElementsAre("master_change", "sync", "config_change 52 58"));
    EXPECT_THAT(logger.texts(), IsEmpty());
}

TEST_F(EventLoopTest, DeliversWhatWasThereEvenIfNothingRingsAgain) {
    bus.push(ipc::sync_event);
    bus.source.fall_silent();
    feed.push({52});
    feed.source.fall_silent();
    EXPECT_THAT(run_for(2), ElementsAre("sync", "config_change 52"));
}

TEST_F(EventLoopTest, DeliversWhatComesWhileItWaits) {
    service.answer = [this](std::string const& event) {
        if (event == "config_change 52") {
            bus.push(ipc::sync_event);
        } else {
            std::ignore = flags.finished.raise();
        }
        return core::success();
    };
    feed.push({52});
    EXPECT_THAT(run(), ElementsAre("config_change 52", "sync"));
}

TEST_F(EventLoopTest, MessagesArriveInOrderWhateverTheirPayloadAndAllOthersAreIgnored) {
    bus.push(ipc::sync_event);
    bus.push(12500);
    bus.push(0);
    bus.source.push(ipc::Message{{{7}, ipc::master_change_event, 1}, {std::byte{1}, std::byte{2}}});
    bus.push(12102);
    bus.push(ipc::sync_event);
    EXPECT_THAT(run_for(3), ElementsAre("sync", "master_change", "sync"));
}

TEST_F(EventLoopTest, ListsArriveInOrder) {
    feed.push({52, 58});
    feed.push({60});
    feed.push({52});
    EXPECT_THAT(run_for(3), ElementsAre("config_change 52 58", "config_change 60", "config_change 52"));
}

TEST_F(EventLoopTest, AServiceThatWantsAMasterChangeGetsOneFirstOfAll) {
    service.wants_master_change = [] { return true; };
    bus.push(ipc::sync_event);
    EXPECT_THAT(run_for(2), ElementsAre("master_change", "sync"));
}

TEST_F(EventLoopTest, AQuestionThatThrowsLeavesTheServiceServing) {
    service.wants_master_change = []() -> bool { throw std::runtime_error{"no idea"}; };
    bus.push(ipc::sync_event);
    EXPECT_THAT(run_for(1), ElementsAre("sync"));
    EXPECT_THAT(logger.texts(), ElementsAre("An std::exception was thrown: no idea ",
                                            "is_required_master_change_event failed: Error: Exception"));
}

TEST_F(EventLoopTest, BeforeServingNothingButTheStopIsDelivered) {
    EventFlags silent;
    bus.push(ipc::sync_event);
    feed.push({52});
    service.wants_master_change = [] { return true; };
    std::ignore = silent.stop.raise();
    EventLoop{service, ctx, logger, &bus, &feed, silent}.run();
    EXPECT_THAT(journal.entries(), ElementsAre("stop"));
    EXPECT_EQ(feed.source.asked(), 0);
}

TEST_F(EventLoopTest, TheBusIsReadBeforeServingAndItsEventsAreDeliveredOnceEachAfterwards) {
    EventFlags not_serving_yet;
    for (auto const event :
         {ipc::sync_event, ipc::master_change_event, ipc::sync_event, ipc::master_change_event}) {
        bus.push(event);
    }
    service.wants_master_change = [] { return true; };
    service.answer = [&](auto const&) {
        return journal.entries().size() == 2 ? not_serving_yet.stop.raise() : core::success();
    };
    std::thread loop{[&] { EventLoop{service, ctx, logger, &bus, &feed, not_serving_yet}.run(); }};
    EXPECT_TRUE(test::wait_until([this] { return bus.source.asked() == 5; }));
    EXPECT_THAT(journal.entries(), IsEmpty());
    std::ignore = not_serving_yet.serving.raise();
    loop.join();
    EXPECT_THAT(journal.entries(), ElementsAre("sync", "master_change", "stop"));
}

TEST_F(EventLoopTest, OnceTheServicesRunIsOverThereIsNothingToStop) {
    bus.push(ipc::sync_event);
    std::ignore = flags.finished.raise();
    std::ignore = flags.stop.raise();
    EXPECT_THAT(run(), IsEmpty());
}

TEST_F(EventLoopTest, NothingIsDeliveredAfterAStop) {
    for (int i = 0; i < 3; ++i) {
        bus.push(ipc::sync_event);
        feed.push({52});
    }
    service.answer = [this](auto const&) { return flags.stop.raise(); };
    EXPECT_THAT(run(), ElementsAre("sync", "stop"));
}

TEST_F(EventLoopTest, AStopWhileTheFieldsOfAFailedListAreDeliveredComesBeforeTheNextOne) {
    service.answer = [this](std::string const& event) -> core::Result<void> {
        if (event == "config_change 58") {
            std::ignore = flags.stop.raise();
        }
        return core::ErrorPayload{Error::CommonError};
    };
    feed.push({52, 58, 60});
    EXPECT_THAT(run(), ElementsAre("config_change 52 58 60", "config_change 52", "config_change 58", "stop"));
}

TEST_F(EventLoopTest, ErrorsOfHandlersAreLoggedOnceAndServingGoesOn) {
    bus.push(ipc::master_change_event);
    bus.push(ipc::sync_event);
    bus.push(ipc::sync_event);
    EXPECT_THAT(run_failing(3, core::fail(Error::CommonError, "no disk")),
                ElementsAre("master_change", "sync", "sync"));
    EXPECT_THAT(logger.texts(), ElementsAre("master_change failed: Error: CommonError. Message: no disk.",
                                            "sync failed: Error: CommonError. Message: no disk.",
                                            "sync failed: Error: CommonError. Message: no disk."));
    EXPECT_EQ(logger.lines().at(0).level, core::log_failure);
}

TEST_F(EventLoopTest, ExceptionsOfHandlersAreErrors) {
    service.answer = [this](std::string const& event) -> core::Result<void> {
        end_after(2);
        if (event == "sync") {
            throw std::runtime_error{"broken"};
        }
        throw 7;
    };
    bus.push(ipc::sync_event);
    bus.push(ipc::master_change_event);
    EXPECT_THAT(run(), ElementsAre("sync", "master_change"));
    EXPECT_THAT(logger.texts(),
                ElementsAre("An std::exception was thrown: broken ", "sync failed: Error: Exception",
                            "An exception was thrown. ", "master_change failed: Error: Exception"));
}

TEST_F(EventLoopTest, AStopThatFailsIsLogged) {
    service.answer = [](auto const&) -> core::Result<void> {
        return core::ErrorPayload{Error::InvalidState};
    };
    std::ignore = flags.stop.raise();
    EXPECT_THAT(run(), ElementsAre("stop"));
    EXPECT_THAT(logger.texts(), ElementsAre("stop failed: Error: InvalidState"));
}

TEST_F(EventLoopTest, AFailingFieldCostsNoOtherFieldItsChange) {
    service.answer = [this](std::string const& event) -> core::Result<void> {
        end_after(4);
        if (event.find("58") != std::string::npos) {
            return core::ErrorPayload{Error::ErrorCApi};
        }
        return core::success();
    };
    feed.push({52, 58, 60});
    EXPECT_THAT(run(), ElementsAre("config_change 52 58 60", "config_change 52", "config_change 58",
                                   "config_change 60"));
    EXPECT_THAT(logger.texts(), ElementsAre("config_change of 3 fields failed: Error: ErrorCApi",
                                            "config_change of module.alarmmgr failed: Error: ErrorCApi"));
}

TEST_F(EventLoopTest, AFieldThatFailsAloneIsDeliveredAgainASecondLaterAndNotSooner) {
    auto const begin = Clock::now();
    feed.push({71});
    EXPECT_THAT(run_failing(2, core::ErrorPayload{Error::Exception}),
                ElementsAre("config_change 71", "config_change 71"));
    EXPECT_GE(Clock::now() - begin, 1s);
}

TEST_F(EventLoopTest, ABusThatFailsIsLoggedOnceAndAskedAgainLater) {
    for (int i = 0; i < 2; ++i) {
        bus.source.push(core::fail(Error::CommonError, "no bus"));
    }
    bus.push(ipc::sync_event);
    auto const begin = Clock::now();
    EXPECT_THAT(run_for(1), ElementsAre("sync"));
    EXPECT_GE(Clock::now() - begin, 3s);
    EXPECT_EQ(bus.source.asked(), 3);
    EXPECT_THAT(logger.texts(),
                ElementsAre("Reading the message bus failed: Error: CommonError. Message: no bus.",
                            "Reading the message bus works again"));
}

TEST_F(EventLoopTest, AFeedThatFailsIsLoggedOnceAskedAgainLaterAndLosesNothing) {
    feed.source.push(core::fail(Error::CommonError, "locked"));
    feed.push({52});
    auto const begin = Clock::now();
    EXPECT_THAT(run_for(1), ElementsAre("config_change 52"));
    EXPECT_GE(Clock::now() - begin, 1s);
    EXPECT_EQ(feed.source.asked(), 2);
    EXPECT_THAT(logger.texts(),
                ElementsAre("Reading the configuration changes failed: Error: CommonError. Message: locked.",
                            "Reading the configuration changes works again"));
}

TEST_F(EventLoopTest, ARingOfTheFeedEndsItsRest) {
    // Three failures, and the rest after the third takes 4 s.
    for (int i = 0; i < 3; ++i) {
        feed.source.push(core::fail(Error::CommonError, "damaged"));
        feed.source.announce();
    }
    std::thread writer{[this] {
        for (int asked = 1; asked <= 3; ++asked) {
            EXPECT_TRUE(test::wait_until([&] { return feed.source.asked() == asked; }));
            if (asked < 3) {
                feed.source.announce();
            } else {
                feed.push({52});
            }
        }
    }};
    auto const begin = Clock::now();
    EXPECT_THAT(run_for(1), ElementsAre("config_change 52"));
    EXPECT_LT(Clock::now() - begin, 7s) << "the rests alone take 1, 2 and 4 s";
    writer.join();
    EXPECT_EQ(feed.source.asked(), 4);
    EXPECT_THAT(logger.texts(),
                ElementsAre("Reading the configuration changes failed: Error: CommonError. Message: damaged.",
                            "Reading the configuration changes works again"));
}

TEST_F(EventLoopTest, AFieldThatFailsIsLoggedOnceForEachReasonAndOnceItWorksAgain) {
    service.answer = [this](auto const&) -> core::Result<void> {
        switch (journal.entries().size()) {
        case 1:
            feed.push({71}); // a newer change
            return core::fail(Error::CommonError, "no disk");
        case 2:
            feed.push({71, 52});
            return core::fail(Error::CommonError, "no disk");
        case 3:
            return core::fail(Error::CommonError, "bad neighbour");
        case 4:
            return core::fail(Error::CommonError, "no memory");
        case 5:
            return core::success();
        default:
            end_after(6);
            return core::success();
        }
    };
    feed.push({71});
    EXPECT_THAT(run(), ElementsAre("config_change 71", "config_change 71", "config_change 71 52",
                                   "config_change 71", "config_change 52", "config_change 71"));
    EXPECT_THAT(
        logger.texts(),
        ElementsAre("config_change of module.sessionmgr failed: Error: CommonError. Message: no disk.",
                    "config_change of 2 fields failed: Error: CommonError. Message: bad neighbour.",
                    "config_change of module.sessionmgr failed: Error: CommonError. Message: no memory.",
                    "config_change of module.sessionmgr works again"));
}

TEST_F(EventLoopTest, ASourceThatFailsDoesNotDelayTheOther) {
    feed.source.push(core::fail(Error::CommonError, "locked"));
    bus.push(ipc::sync_event);
    EXPECT_THAT(run_for(1), ElementsAre("sync"));
}

TEST_F(EventLoopTest, AFloodOnTheBusDelaysNeitherChangesNorTheStop) {
    FloodedBus flood;
    feed.push({52});
    service.answer = [this](auto const&) { return flags.stop.raise(); };
    EventLoop{service, ctx, logger, &flood, &feed, flags}.run();
    EXPECT_THAT(journal.entries(), ElementsAre("config_change 52", "stop"));
}

TEST_F(EventLoopTest, WithoutAFeedOrWithoutABusTheOtherIsListenedTo) {
    for (bool const with_bus : {true, false}) {
        EventFlags told;
        std::ignore = told.serving.raise();
        bus.push(ipc::sync_event);
        feed.push({52});
        service.answer = [&](auto const&) { return told.finished.raise(); };
        EventLoop{service, ctx, logger, with_bus ? &bus : nullptr, with_bus ? nullptr : &feed, told}.run();
    }
    EXPECT_THAT(journal.entries(), ElementsAre("sync", "config_change 52"));
}

} // namespace
} // namespace xpon::service
