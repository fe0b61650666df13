#include "xpon/service/service_launcher.hpp"

#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <future>
#include <random>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/blocked_signals.hpp"
#include "core/failure.hpp"
#include "fakes.hpp"
#include "kit/fake_logger.hpp"
#include "kit/matchers.hpp"
#include "kit/names_in.hpp"
#include "kit/process_status.hpp"
#include "timing.hpp"

namespace xpon::service {
namespace {

using core::Error;
using test::IsError;
using test::IsOk;
using testing::ElementsAre;
using testing::IsEmpty;

std::size_t entries_of(char const* folder) {
    return test::names_in(folder).size();
}

/// Counted once a first thread has come and gone: a sanitizer starts one of its own with it.
std::size_t threads_now() {
    std::filesystem::path task;
    std::thread{[&] { task = std::filesystem::canonical("/proc/thread-self"); }}.join();
    EXPECT_TRUE(test::wait_until([&] { return !std::filesystem::exists(task); }));
    return entries_of("/proc/self/task");
}

bool only_this_thread_is_left(std::size_t before) {
    // A joined thread stays listed for a moment.
    return test::wait_until([before] { return entries_of("/proc/self/task") <= before; });
}

struct LauncherTest : testing::Test {
    Journal journal;
    std::shared_ptr<test::FakeLogger> logger = std::make_shared<test::FakeLogger>();
    std::shared_ptr<FakeBus> bus = std::make_shared<FakeBus>();
    std::unique_ptr<FakeService> made = std::make_unique<FakeService>(journal);
    std::unique_ptr<FakeFeed> made_feed = std::make_unique<FakeFeed>();
    FakeService& service = *made;
    FakeFeed& feed = *made_feed;
    std::size_t const threads_before = threads_now();

    ServiceLauncher launcher_without_feed() { return {std::move(made), logger, bus, false}; }
    ServiceLauncher launcher() {
        cfgdb::ChangeFeed::offer(std::move(made_feed));
        return {std::move(made), logger, bus, true};
    }
};

std::future<core::Result<void>> run_elsewhere(ServiceLauncher& launcher) {
    return std::async(std::launch::async, [&launcher] { return launcher.run(); });
}

/// That `run` returns, and returns a success.
void expect_end(std::future<core::Result<void>>& running) {
    ASSERT_EQ(running.wait_for(test::default_deadline), std::future_status::ready);
    EXPECT_THAT(running.get(), IsOk());
}

TEST_F(LauncherTest, RunsTheServiceUntilItIsStopped) {
    auto launched = launcher_without_feed();
    service.run_as = [this](ServiceCtx const& ctx) {
        journal.add("run");
        return service.serve(ctx);
    };
    auto running = run_elsewhere(launched);
    ASSERT_TRUE(journal.wait_for(1));
    EXPECT_THAT(launched.stop(), IsOk());
    expect_end(running);
    EXPECT_THAT(journal.entries(), ElementsAre("run", "stop"));
}

TEST_F(LauncherTest, CallsTheServicesRunOnTheCallersThreadAndItsEventsOnAnother) {
    auto launched = launcher();
    std::thread::id run_thread;
    std::thread::id event_thread;
    service.run_as = [&](ServiceCtx const& ctx) {
        run_thread = std::this_thread::get_id();
        return service.serve(ctx);
    };
    service.answer = [&](std::string const& event) {
        if (event == "sync") {
            event_thread = std::this_thread::get_id();
            return launched.stop();
        }
        EXPECT_EQ(event_thread, std::this_thread::get_id()) << event;
        return core::Result<void>{core::success()};
    };
    bus->push(ipc::sync_event);
    EXPECT_THAT(launched.run(), IsOk());
    EXPECT_EQ(run_thread, std::this_thread::get_id());
    EXPECT_NE(event_thread, run_thread);
}

TEST_F(LauncherTest, StoppedBeforeRunItStillRunsTheServiceWhichReturnsOnceItWouldServe) {
    auto launched = launcher();
    bus->push(ipc::sync_event);
    feed.push({52});
    service.run_as = [this](ServiceCtx const& ctx) {
        journal.add("start up");
        if (!journal.wait_for(2)) { // the stop need not wait for the start-up
            ADD_FAILURE() << "no stop during the start-up";
        }
        return service.serve(ctx);
    };
    EXPECT_THAT(launched.stop(), IsOk());
    EXPECT_THAT(launched.run(), IsOk());
    EXPECT_THAT(journal.entries(), testing::UnorderedElementsAre("start up", "stop"));
}

TEST_F(LauncherTest, StopsAskedForManyTimesReachTheServiceOnce) {
    auto launched = launcher();
    EXPECT_THAT(launched.stop(), IsOk());
    EXPECT_THAT(launched.stop(), IsOk());
    EXPECT_THAT(launched.run(), IsOk());
    EXPECT_THAT(launched.stop(), IsOk());
    EXPECT_THAT(journal.entries(), ElementsAre("stop"));
}

TEST_F(LauncherTest, NoEventIsDeliveredBeforeTheServiceServes) {
    auto launched = launcher();
    bus->push(ipc::sync_event);
    feed.push({52});
    service.run_as = [this](ServiceCtx const& ctx) {
        // Give the event thread every chance to come too early: let it run until it sleeps.
        EXPECT_TRUE(test::wait_until([this] { return entries_of("/proc/self/task") > threads_before; }));
        EXPECT_TRUE(test::wait_until([] {
            for (auto const& task : std::filesystem::directory_iterator{"/proc/self/task"}) {
                auto const id = std::stoi(task.path().filename());
                std::string stat;
                std::getline(std::ifstream{task.path() / "stat"}, stat);
                if (id != gettid() && stat.substr(stat.rfind(')') + 2, 1) != "S") {
                    return false;
                }
            }
            return true;
        }));
        journal.add("begin to serve");
        return service.serve(ctx);
    };
    service.answer = [&](auto const&) {
        return journal.entries().size() == 3 ? launched.stop() : core::Result<void>{core::success()};
    };
    EXPECT_THAT(launched.run(), IsOk());
    EXPECT_THAT(journal.entries(), ElementsAre("begin to serve", "sync", "config_change 52", "stop"));
}

TEST_F(LauncherTest, AChangeInProgressIsFinishedBeforeTheStop) {
    auto launched = launcher();
    std::promise<void> stop_was_asked_for;
    auto asked = stop_was_asked_for.get_future();
    service.answer = [&](std::string const& event) {
        if (event == "config_change 52") {
            EXPECT_EQ(asked.wait_for(test::default_deadline), std::future_status::ready);
            journal.add("changed");
        }
        return core::success();
    };
    feed.push({52});
    auto running = run_elsewhere(launched);
    ASSERT_TRUE(journal.wait_for(1));
    EXPECT_THAT(launched.stop(), IsOk());
    stop_was_asked_for.set_value();
    expect_end(running);
    EXPECT_THAT(journal.entries(), ElementsAre("config_change 52", "changed", "stop"));
}

TEST_F(LauncherTest, WhatPilesUpDuringADeliveryComesAfterIt) {
    auto launched = launcher();
    service.answer = [&](std::string const& event) {
        if (event == "config_change 52") {
            feed.push({58, 59});
            feed.push({60});
        }
        return event == "config_change 60" ? launched.stop() : core::Result<void>{core::success()};
    };
    feed.push({52});
    EXPECT_THAT(launched.run(), IsOk());
    EXPECT_THAT(journal.entries(),
                ElementsAre("config_change 52", "config_change 58 59", "config_change 60", "stop"));
}

TEST_F(LauncherTest, AnErrorOfTheServicesRunIsPassedOnAndEndsTheEventThread) {
    auto launched = launcher();
    service.run_as = [](ServiceCtx const&) -> core::Result<void> {
        return core::fail(Error::NoAccess, "not today");
    };
    EXPECT_THAT(launched.run(), IsError(Error::NoAccess, "not today"));
    EXPECT_TRUE(only_this_thread_is_left(threads_before));
    EXPECT_THAT(journal.entries(), IsEmpty());
}

TEST_F(LauncherTest, AnExceptionOfTheServicesRunIsPassedOnAndEndsTheEventThread) {
    auto launched = launcher();
    service.run_as = [](ServiceCtx const&) -> core::Result<void> { throw std::runtime_error{"broken"}; };
    EXPECT_THROW(std::ignore = launched.run(), std::runtime_error);
    EXPECT_TRUE(only_this_thread_is_left(threads_before));
}

TEST_F(LauncherTest, AHandlerThatIsRunningIsWaitedForWhenTheServicesRunReturns) {
    auto launched = launcher();
    std::atomic<bool> leaving = false;
    service.run_as = [&](ServiceCtx const& ctx) -> core::Result<void> {
        ctx.serving();
        EXPECT_TRUE(journal.wait_for(1));
        leaving = true;
        return core::ErrorPayload{Error::CommonError};
    };
    service.answer = [&](auto const&) {
        EXPECT_TRUE(test::wait_until([&] { return leaving.load(); }));
        journal.add("synchronised");
        return core::success();
    };
    bus->push(ipc::sync_event);
    EXPECT_THAT(launched.run(), IsError(Error::CommonError, ""));
    EXPECT_THAT(journal.entries(), ElementsAre("sync", "synchronised"));
}

TEST_F(LauncherTest, RunsOnlyOnce) {
    auto launched = launcher_without_feed();
    EXPECT_THAT(launched.stop(), IsOk());
    EXPECT_THAT(launched.run(), IsOk());
    EXPECT_THAT(launched.run(), IsError(Error::InvalidState, "A launcher can run its service only once"));
}

TEST_F(LauncherTest, NeedsAService) {
    EXPECT_THROW((ServiceLauncher{nullptr, logger, bus, false}), std::invalid_argument);
}

TEST_F(LauncherTest, CanBeDestroyedWithoutARun) {
    auto const descriptors_before = entries_of("/proc/self/fd");
    {
        auto launched = launcher_without_feed();
        EXPECT_GT(entries_of("/proc/self/fd"), descriptors_before);
    }
    EXPECT_EQ(entries_of("/proc/self/fd"), descriptors_before);
    EXPECT_EQ(entries_of("/proc/self/task"), threads_before);
}

TEST_F(LauncherTest, WithoutADatabaseOfThisProcessItSaysSoAndServesWithoutChanges) {
    ServiceLauncher launched{std::move(made), logger, bus, true};
    bus->push(ipc::sync_event);
    service.answer = [&](auto const&) { return launched.stop(); };
    EXPECT_THAT(launched.run(), IsOk());
    EXPECT_THAT(journal.entries(), ElementsAre("sync", "stop"));
    EXPECT_THAT(logger->texts(), ElementsAre("Configuration changes are not followed: no database is open"));
    EXPECT_EQ(logger->lines().at(0).level, core::log_failure);
}

TEST_F(LauncherTest, LeavesNoThreadAndNoDescriptorBehind) {
    auto const descriptors_before = entries_of("/proc/self/fd");
    for (int i = 0; i < 200; ++i) {
        ServiceLauncher launched{std::make_unique<FakeService>(journal), logger, bus, false};
        if (i % 2 == 0) {
            EXPECT_THAT(launched.stop(), IsOk());
            EXPECT_THAT(launched.run(), IsOk());
        } else {
            auto running = run_elsewhere(launched);
            EXPECT_THAT(launched.stop(), IsOk());
            EXPECT_THAT(running.get(), IsOk());
        }
    }
    EXPECT_EQ(entries_of("/proc/self/fd"), descriptors_before);
    EXPECT_TRUE(only_this_thread_is_left(threads_before));
}

TEST_F(LauncherTest, StoppingLeavesErrnoAlone) {
    auto launched = launcher_without_feed();
    errno = EXDEV;
    bool const stopped = launched.stop().has_value();
    EXPECT_EQ(errno, EXDEV);
    EXPECT_TRUE(stopped);
}

TEST_F(LauncherTest, TheEventThreadBlocksEverySignalAndTheCallersMaskStays) {
    auto launched = launcher();
    auto const mask_before = test::blocked_signals();
    std::uint64_t mask_in_run = 0;
    std::uint64_t mask_in_event = 0;
    service.run_as = [&](ServiceCtx const& ctx) {
        mask_in_run = test::blocked_signals();
        return service.serve(ctx);
    };
    service.answer = [&](std::string const&) {
        mask_in_event = test::blocked_signals();
        return launched.stop();
    };
    bus->push(ipc::sync_event);
    EXPECT_THAT(launched.run(), IsOk());
    EXPECT_EQ(mask_in_run, mask_before);
    EXPECT_EQ(test::blocked_signals(), mask_before);
    EXPECT_EQ(mask_in_event, test::every_signal);
}

std::atomic<ServiceLauncher*> launcher_of_the_handler{nullptr};

void stop_from_handler(int /*signal*/) {
    if (auto* const launched = launcher_of_the_handler.load()) {
        std::ignore = launched->stop();
    }
}

/// A thousand launchers, each stopped by a signal to the thread that runs it. Half of the services end by
/// themselves at once, so that the signal arrives before, during and after `run`; the others end by it alone.
TEST_F(LauncherTest, ASignalHandlerStopsItAtAnyInstant) {
    struct sigaction action{};
    struct sigaction action_before{};
    action.sa_handler = stop_from_handler;
    ASSERT_EQ(sigaction(SIGUSR1, &action, &action_before), 0);

    constexpr int rounds = 1000;
    Journal ready; // one entry as each launcher can be stopped
    Journal sent;  // one entry as each signal was sent
    std::promise<pthread_t> runner_thread;
    auto runner = std::async(std::launch::async, [&] {
        runner_thread.set_value(pthread_self());
        int stopped_well = 0;
        for (int round = 0; round < rounds; ++round) {
            Journal events;
            auto driven = std::make_unique<FakeService>(events);
            if (round % 2 == 0) {
                driven->run_as = [](auto const&) { return core::success(); };
            }
            ServiceLauncher launched{std::move(driven), logger, bus, false};
            {
                core::BlockedSignals const around_the_assignment{SIGUSR1};
                launcher_of_the_handler = &launched;
            }
            ready.add("");
            stopped_well += launched.run().has_value() ? 1 : 0;
            if (!sent.wait_for(static_cast<std::size_t>(round) + 1)) {
                return round;
            }
            core::BlockedSignals const around_the_emptying{SIGUSR1};
            launcher_of_the_handler = nullptr;
        }
        return stopped_well;
    });

    auto const runner_id = runner_thread.get_future().get();
    std::minstd_rand random{20};
    std::uniform_int_distribution<int> microseconds{0, 150};
    for (int round = 0; round < rounds; ++round) {
        ASSERT_TRUE(ready.wait_for(static_cast<std::size_t>(round) + 1)) << "round " << round << " hangs";
        // Not for an event: this spreads the instants at which the signal arrives.
        auto const instant = Clock::now() + std::chrono::microseconds{microseconds(random)};
        while (Clock::now() < instant) {
        }
        ASSERT_EQ(pthread_kill(runner_id, SIGUSR1), 0);
        sent.add("");
    }
    ASSERT_EQ(runner.wait_for(test::default_deadline), std::future_status::ready);
    EXPECT_EQ(runner.get(), rounds);
    EXPECT_EQ(sigaction(SIGUSR1, &action_before, nullptr), 0);
}

} // namespace
} // namespace xpon::service
