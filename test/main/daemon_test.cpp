#include "main/daemon.hpp"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <span>
#include <stdexcept>

#include <gmock/gmock.h>

#include "core/failure.hpp"
#include "kit/notify_socket.hpp"
#include "kit/scratch_folder.hpp"
#include "main/fake_platform.hpp"

namespace xpon::log_config {
namespace {

using core::Error;
using core::fail;
using core::Result;
using test::FakePlatform;
using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;

constexpr char const* starting = "STATUS=Startup LOG Configurator...";
constexpr char const* ready = "READY=1\nSTATUS=Processing requests...\n";
constexpr char const* stopping = "STATUS=Shutdown LOG Configurator...\nSTOPPING=1\n";

/// Everything that a cycle creates, in order.
std::vector<std::string> const created{
    "context(/etc/zlog_modules_config/LOG-CONFIG.conf, LOG-CFG_IPC, 0)",
    "logger(LOG-CFG)",
    "ipc(65535, LOG-CFG_IPC)",
    "cfgdb(LOG-CFG_CFGDB)",
    "kernel",
    "writer(/etc/syslog-ng/syslog-ng.conf)",
    "syslog",
    "rsh(/dev/pts)",
    "zlog files",
    "service(1)",
    "launcher(true)",
};

class DaemonTest : public testing::Test {
  protected:
    DaemonTest() {
        platform = {};
        setenv("NOTIFY_SOCKET", (folder / "notify").c_str(), 1);
    }
    ~DaemonTest() override {
        unsetenv("NOTIFY_SOCKET");
        for (int const signal : {SIGTERM, SIGINT, SIGHUP}) {
            std::signal(signal, SIG_DFL);
        }
    }

    static std::function<Result<void>()> raising(std::vector<int> signals) {
        return [signals = std::move(signals)]() -> Result<void> {
            for (int const signal : signals) {
                std::raise(signal);
            }
            return core::success();
        };
    }

    /// What arrived at the service manager's socket, since the last time.
    std::vector<std::string> notified() {
        auto const sent = platform.traced("notify ").size();
        EXPECT_TRUE(test::wait_until([&] { return socket.datagrams().size() == seen + sent; }));
        auto const all = socket.datagrams();
        std::vector<std::string> const fresh{all.begin() + static_cast<std::ptrdiff_t>(seen), all.end()};
        seen = all.size();
        return fresh;
    }

    FakePlatform& platform = FakePlatform::instance();
    test::ScratchFolder folder;
    test::NotifySocket socket{folder / "notify"};
    std::size_t seen = 0;
};

TEST_F(DaemonTest, AStopSignalEndsItWith0) {
    for (int const signal : {SIGTERM, SIGINT}) {
        platform = {};
        platform.runs = {raising({signal})};
        EXPECT_EQ(run_daemon(), 0);
        EXPECT_THAT(notified(), ElementsAre(starting, ready, stopping));
        EXPECT_THAT(platform.trace, Contains("stop").Times(1));
    }
}

TEST_F(DaemonTest, CreatesEverythingInOrderWithItsArguments) {
    EXPECT_EQ(run_daemon(), 0);
    EXPECT_EQ(platform.traced("create "), created);
}

TEST_F(DaemonTest, ReleasesEverythingInReverseOrderAfterTheShutdownText) {
    EXPECT_EQ(run_daemon(), 0);
    EXPECT_THAT(platform.traced("destroy "),
                ElementsAre("launcher", "zlog files", "rsh", "cfgdb", "ipc", "logger", "context"));
    auto const place = [&](std::string const& line) {
        return std::find(platform.trace.begin(), platform.trace.end(), line) - platform.trace.begin();
    };
    EXPECT_LT(place(std::string{"notify "} + stopping), place("destroy launcher"));
    EXPECT_LT(place("create launcher(true)"), place(std::string{"notify "} + ready));
}

TEST_F(DaemonTest, ARestartSignalBuildsEverythingAgain) {
    platform.runs = {raising({SIGHUP}), raising({SIGHUP}), raising({SIGTERM})};
    EXPECT_EQ(run_daemon(), 0);
    EXPECT_THAT(notified(),
                ElementsAre(starting, ready, stopping, starting, ready, stopping, starting, ready, stopping));
    EXPECT_EQ(platform.traced("create ").size(), 3 * created.size());
    auto const second =
        std::find(platform.trace.begin() + 1, platform.trace.end(), std::string{"notify "} + starting);
    EXPECT_EQ(*(second - 1), "destroy context") << "a cycle begins when the last one is gone";
}

TEST_F(DaemonTest, AServiceThatEndsByItselfIsStartedAgain) {
    platform.runs = {[]() -> Result<void> { return core::success(); }, raising({SIGTERM})};
    EXPECT_EQ(run_daemon(), 0);
    EXPECT_EQ(platform.cycles, 2U);
}

TEST_F(DaemonTest, ARestartSignalFollowedByAStopSignalEndsAfterThatCycle) {
    platform.runs = {raising({SIGHUP, SIGTERM})};
    EXPECT_EQ(run_daemon(), 0);
    EXPECT_EQ(platform.cycles, 1U);
    EXPECT_THAT(notified(), ElementsAre(starting, ready, stopping));
}

TEST_F(DaemonTest, AStopSignalFollowedByARestartSignalEndsAfterThatCycle) {
    platform.runs = {raising({SIGTERM, SIGHUP})};
    EXPECT_EQ(run_daemon(), 0);
    EXPECT_EQ(platform.cycles, 1U);
}

TEST_F(DaemonTest, SignalsBeforeReadyAreIgnored) {
    for (auto const* const object :
         {"context", "logger", "ipc", "cfgdb", "rsh", "zlog files", "service", "launcher"}) {
        platform = {};
        platform.on_create[object] = [] {
            std::raise(SIGTERM);
            std::raise(SIGINT);
            std::raise(SIGHUP);
        };
        EXPECT_EQ(run_daemon(), 0) << object;
        EXPECT_THAT(notified(), ElementsAre(starting, ready, stopping)) << object;
        EXPECT_THAT(platform.trace, Contains("stop").Times(1)) << object << ": the one sent while serving";
    }
}

TEST_F(DaemonTest, SignalsReachTheLauncherFromReadyOn) {
    platform.on[std::string{"notify "} + ready] = [] { std::raise(SIGTERM); };
    platform.runs = {[]() -> Result<void> { return core::success(); }};
    EXPECT_EQ(run_daemon(), 0);
    EXPECT_THAT(platform.trace, Contains("stop").Times(1));
}

TEST_F(DaemonTest, AStopSignalDuringTheShutdownTextStillCounts) {
    platform.runs = {raising({SIGHUP})};
    platform.on[std::string{"notify "} + stopping] = [] { std::raise(SIGTERM); };
    EXPECT_EQ(run_daemon(), 0);
    EXPECT_EQ(platform.cycles, 1U);
}

TEST_F(DaemonTest, SignalsDuringTheReleaseAreIgnored) {
    for (auto const* const object : {"launcher", "zlog files", "rsh", "cfgdb", "ipc", "logger", "context"}) {
        platform = {};
        platform.runs = {raising({SIGHUP}), raising({SIGTERM})};
        platform.on[std::string{"destroy "} + object] = [] { std::raise(SIGTERM); };
        EXPECT_EQ(run_daemon(), 0) << object;
        EXPECT_EQ(platform.cycles, 2U) << object << ": the restart was not called off";
        EXPECT_THAT(platform.trace, Contains("stop").Times(2)) << object;
    }
}

TEST_F(DaemonTest, AFailedRunEndsItWith1WhateverSignalCame) {
    for (auto const& signals : {std::vector<int>{}, {SIGHUP}, {SIGTERM}}) {
        platform = {};
        platform.runs = {[&]() -> Result<void> {
            std::ignore = raising(signals)();
            return fail(Error::CommonError, "broken");
        }};
        EXPECT_EQ(run_daemon(), 1);
        EXPECT_EQ(platform.cycles, 1U);
        EXPECT_THAT(notified(), ElementsAre(starting, ready, stopping));
        EXPECT_EQ(platform.trace.back(), "destroy context");
    }
}

struct FailureRow {
    char const* object;
    char const* standard;
    char const* unknown;
    std::size_t created_before;
};

class DaemonFailureTest : public DaemonTest, public testing::WithParamInterface<FailureRow> {};

INSTANTIATE_TEST_SUITE_P(
    EachObject, DaemonFailureTest,
    testing::Values(FailureRow{"context", "STATUS=Unable to create logging context.",
                               "STATUS=Unable to create logging context.", 0},
                    FailureRow{"logger", "STATUS=Exception on create log subsystem: a {} b.",
                               "STATUS=Unknown exception on create log subsystem.", 1},
                    FailureRow{"ipc", "STATUS=Exception on create IPC subsystem: a {} b.",
                               "STATUS=Error on create IPC subsystem.", 2},
                    FailureRow{"cfgdb", "STATUS=Exception on create CFGDB subsystem: a {} b.",
                               "STATUS=Unknown exception on create CFGDB subsystem.", 3},
                    FailureRow{"service", "STATUS=Exception on create LOG service: a {} b.",
                               "STATUS=Unknown exception on create LOG service.", 9},
                    FailureRow{"launcher", "STATUS=Exception on create Service Launcher: a {} b.",
                               "STATUS=Unknown exception on create Service Launcher.", 10}),
    [](auto const& row) { return std::string{row.param.object}; });

TEST_P(DaemonFailureTest, AStandardExceptionIsReportedWithItsText) {
    platform.on_create[GetParam().object] = [] { throw std::runtime_error("a {} b"); };
    EXPECT_EQ(run_daemon(), 1);
    EXPECT_THAT(notified(), ElementsAre(starting, GetParam().standard));
}

TEST_P(DaemonFailureTest, AnyOtherExceptionIsReportedWithoutText) {
    platform.on_create[GetParam().object] = [] { throw 7; };
    EXPECT_EQ(run_daemon(), 1);
    EXPECT_THAT(notified(), ElementsAre(starting, GetParam().unknown));
}

TEST_P(DaemonFailureTest, WhatWasCreatedBeforeIsReleased) {
    platform.on_create[GetParam().object] = [] { throw 7; };
    EXPECT_EQ(run_daemon(), 1);
    EXPECT_THAT(platform.traced("create "),
                ElementsAreArray(created.begin(),
                                 created.begin() + static_cast<std::ptrdiff_t>(GetParam().created_before)));
    for (auto const* const object : {"context", "logger", "ipc", "cfgdb", "rsh", "zlog files"}) {
        auto const is_it = [&](std::string const& line) { return line.starts_with(object); };
        auto const made = platform.traced("create ");
        auto const gone = platform.traced("destroy ");
        EXPECT_EQ(std::ranges::count_if(made, is_it), std::ranges::count_if(gone, is_it)) << object;
    }
}

TEST_P(DaemonFailureTest, TheFailureIsReportedBeforeAnythingIsReleasedInReverseOrder) {
    platform.on_create[GetParam().object] = [] { throw std::runtime_error("a {} b"); };
    EXPECT_EQ(run_daemon(), 1);
    std::vector<std::string> expected;
    for (auto const* const object : {"context", "logger", "ipc", "cfgdb", "rsh", "zlog files"}) {
        auto const is_it = [&](std::string const& line) { return line.starts_with(object); };
        if (std::ranges::any_of(platform.traced("create "), is_it)) {
            expected.insert(expected.begin(), std::string{"destroy "} + object);
        }
    }
    expected.insert(expected.begin(), std::string{"notify "} + GetParam().standard);
    EXPECT_THAT(std::span(platform.trace).last(expected.size()), ElementsAreArray(expected));
}

TEST_P(DaemonFailureTest, AnExceptionsTextGivesTheServiceManagerNoOrders) {
    platform.on_create[GetParam().object] = [] {
        throw std::runtime_error("a\nMAINPID=222\n\x1B{} \nREADY=1\nb");
    };
    EXPECT_EQ(run_daemon(), 1);
    std::string expected{GetParam().standard};
    if (auto const place = expected.find("a {} b"); place != std::string::npos) {
        expected.replace(place, 6, "aMAINPID=222{} READY=1b");
    }
    EXPECT_THAT(notified(), ElementsAre(starting, expected));
}

TEST_F(DaemonTest, AContextThatComesAsAnErrorIsReportedLikeAnException) {
    platform.context_result = [] { return Result<void>{fail(Error::NoAccess, "no")}; };
    EXPECT_EQ(run_daemon(), 1);
    EXPECT_THAT(notified(), ElementsAre(starting, "STATUS=Unable to create logging context."));
}

TEST_F(DaemonTest, FailedZlogFilesAreReported) {
    platform.zlog_files_result = [] { return Result<void>{fail(Error::CommonError, "no")}; };
    EXPECT_EQ(run_daemon(), 1);
    EXPECT_THAT(notified(), ElementsAre(starting, "STATUS=Failed generate zlog config files"));
    EXPECT_THAT(platform.traced("destroy "), ElementsAre("rsh", "cfgdb", "ipc", "logger", "context"));
}

TEST_F(DaemonTest, AFailureAfterARestartEndsItToo) {
    platform.runs = {raising({SIGHUP})};
    int passes = 0;
    platform.zlog_files_result = [&passes]() -> Result<void> {
        if (++passes == 2) {
            return fail(Error::CommonError, "no");
        }
        return core::success();
    };
    EXPECT_EQ(run_daemon(), 1);
    EXPECT_THAT(notified(),
                ElementsAre(starting, ready, stopping, starting, "STATUS=Failed generate zlog config files"));
}

using DaemonDeathTest = DaemonTest;

// As in main(), nobody catches what leaves it.
void run_daemon_as_main() noexcept {
    run_daemon();
}

TEST_F(DaemonDeathTest, ExceptionsOfTheStepsThatReportNoFailureEndTheProcess) {
    for (auto const* const object : {"kernel", "writer", "syslog", "rsh", "zlog files"}) {
        platform = {};
        platform.on_create[object] = [] { throw std::runtime_error("broken"); };
        EXPECT_DEATH(run_daemon_as_main(), "broken") << object;
    }
}

TEST_F(DaemonDeathTest, AnExceptionOutOfRunEndsTheProcess) {
    platform.runs = {[]() -> Result<void> { throw std::runtime_error("broken"); }};
    EXPECT_DEATH(run_daemon_as_main(), "broken");
}

} // namespace
} // namespace xpon::log_config
