#include "xpon/log_config/syslog_ng/syslog_configurator.hpp"

#include <atomic>
#include <stdexcept>
#include <thread>

#include <gmock/gmock.h>

#include "core/failure.hpp"
#include "kit/fake_config_writer.hpp"
#include "kit/fake_system_wrapper.hpp"
#include "kit/golden.hpp"
#include "kit/matchers.hpp"
#include "log_config/syslog_settings_samples.hpp"

namespace xpon::log_config {
namespace {

using core::Error;
using core::fail;
using test::FakeConfigWriter;
using test::FakeSystemWrapper;
using test::golden;
using test::IsError;
using test::IsOk;
using test::Written;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class SyslogConfiguratorTest : public testing::Test {
  protected:
    static RemoteLoggerEvent added(std::int64_t number) { return {number, RemoteLoggerAction::Add}; }
    static RemoteLoggerEvent removed(std::int64_t number) { return {number, RemoteLoggerAction::Remove}; }

    std::string text() { return configurator.generate_config(default_settings()).value(); }

    std::shared_ptr<FakeSystemWrapper> system = std::make_shared<FakeSystemWrapper>();
    std::shared_ptr<Written> file = std::make_shared<Written>();
    SyslogConfigurator configurator{system, std::make_unique<FakeConfigWriter>(file)};
};

TEST_F(SyslogConfiguratorTest, WritesTheWholeTextAndReloads) {
    EXPECT_THAT(configurator.apply_new_config(default_settings()), IsOk());
    EXPECT_THAT(file->texts, ElementsAre(golden("syslog_ng/defaults.conf")));
    EXPECT_THAT(system->commands(), ElementsAre("/usr/sbin/syslog-ng-ctl reload &> /dev/null"));
}

TEST_F(SyslogConfiguratorTest, AFailedReloadLeavesTheNewFile) {
    system->answer = [](auto const&) -> core::Result<int> { return 1; };
    auto settings = default_settings();
    settings.file.level = 7;
    EXPECT_THAT(configurator.apply_new_config(settings), IsError(Error::CommonError, "Failed reload syslog"));
    EXPECT_THAT(file->texts, ElementsAre(HasSubstr("filter (f_7)")));
}

TEST_F(SyslogConfiguratorTest, AReloadThatCannotRunIsReportedInTheSameWords) {
    system->answer = [](auto const&) -> core::Result<int> { return fail(Error::NoAccess, "no shell"); };
    EXPECT_THAT(configurator.apply_new_config(default_settings()),
                IsError(Error::CommonError, "Failed reload syslog"));
}

TEST_F(SyslogConfiguratorTest, TheWritersErrorComesBackUnchangedAndNothingIsReloaded) {
    file->answer = [] { return core::Result<void>{fail(Error::NoAccess, "disk full")}; };
    EXPECT_THAT(configurator.apply_new_config(default_settings()), IsError(Error::NoAccess, "disk full"));
    EXPECT_THAT(system->commands(), IsEmpty());
}

TEST_F(SyslogConfiguratorTest, AnExceptionFromTheWriterBecomesExceptionAndNothingIsReloaded) {
    file->answer = []() -> core::Result<void> { throw std::runtime_error("broken"); };
    EXPECT_THAT(configurator.apply_new_config(default_settings()), IsError(Error::Exception, ""));
    EXPECT_THAT(system->commands(), IsEmpty());
}

TEST_F(SyslogConfiguratorTest, AnExceptionFromTheReloadPassesAndTheConfiguratorStaysUsable) {
    system->answer = [](auto const&) -> core::Result<int> { throw std::runtime_error("broken"); };
    EXPECT_THROW(std::ignore = configurator.apply_new_config(default_settings()), std::runtime_error);
    system->answer = [](auto const&) -> core::Result<int> { return 0; };
    EXPECT_THAT(configurator.apply_new_config(default_settings()), IsOk()); // the mutex is free again
}

TEST_F(SyslogConfiguratorTest, AnOpenTerminalGetsADestinationAndAClosedOneLosesIt) {
    EXPECT_THAT(configurator.update_remote_logging(added(3)), IsOk());
    EXPECT_THAT(file->texts, IsEmpty());
    EXPECT_THAT(text(), HasSubstr("destination d_rsh_3 {"));
    EXPECT_THAT(configurator.update_remote_logging(removed(3)), IsOk());
    EXPECT_THAT(text(), Not(HasSubstr("d_rsh_3")));
}

TEST_F(SyslogConfiguratorTest, TwoAddsOfATerminalLeaveOneDestination) {
    EXPECT_THAT(configurator.update_remote_logging(added(3)), IsOk());
    auto const once = text();
    EXPECT_THAT(configurator.update_remote_logging(added(3)), IsOk());
    EXPECT_EQ(text(), once);
}

TEST_F(SyslogConfiguratorTest, RemoveForATerminalNeverAddedIsHarmless) {
    EXPECT_THAT(configurator.update_remote_logging(removed(7)), IsOk());
    EXPECT_EQ(text(), golden("syslog_ng/defaults.conf"));
}

TEST_F(SyslogConfiguratorTest, AnyActionButAddCloses) {
    EXPECT_THAT(configurator.update_remote_logging(added(3)), IsOk());
    EXPECT_THAT(configurator.update_remote_logging({3, static_cast<RemoteLoggerAction>(9)}), IsOk());
    EXPECT_EQ(text(), golden("syslog_ng/defaults.conf"));
}

TEST_F(SyslogConfiguratorTest, Terminal15IsRecordedButNeverWritten) {
    EXPECT_THAT(configurator.update_remote_logging(added(15)), IsOk());
    EXPECT_EQ(text(), golden("syslog_ng/defaults.conf"));
}

TEST_F(SyslogConfiguratorTest, TheTerminalsSurviveAFailedApplication) {
    EXPECT_THAT(configurator.update_remote_logging(added(3)), IsOk());
    system->answer = [](auto const&) -> core::Result<int> { return 1; };
    EXPECT_THAT(configurator.apply_new_config(default_settings()), IsError(Error::CommonError, testing::_));
    EXPECT_THAT(text(), HasSubstr("d_rsh_3"));
}

using SyslogConfiguratorDeathTest = SyslogConfiguratorTest;

TEST_F(SyslogConfiguratorDeathTest, ATerminalNumberOutsideTheTableStopsTheProcess) {
    EXPECT_DEATH(std::ignore = configurator.update_remote_logging(added(16)), "");
    EXPECT_DEATH(std::ignore = configurator.update_remote_logging(removed(16)), "");
    EXPECT_DEATH(std::ignore = configurator.update_remote_logging(added(-1)), "");
    EXPECT_DEATH(std::ignore = configurator.update_remote_logging(added(std::int64_t{1} << 40)), "");
}

TEST_F(SyslogConfiguratorTest, RunsOfTwoThreadsNeverInterleave) {
    std::atomic<int> running = 0;
    std::atomic<bool> overlapped = false;
    auto const enter_and_leave = [&] {
        if (running.fetch_add(1) != 0) {
            overlapped = true;
        }
        std::this_thread::yield();
        running.fetch_sub(1);
    };
    file->answer = [&] {
        enter_and_leave();
        return core::Result<void>{core::success()};
    };
    system->answer = [&](auto const&) -> core::Result<int> {
        enter_and_leave();
        return 0;
    };
    auto const hammer = [&](std::int64_t number) {
        for (int round = 0; round < 200; ++round) {
            std::ignore =
                configurator.update_remote_logging(round % 2 == 0 ? added(number) : removed(number));
            std::ignore = configurator.apply_new_config(default_settings());
        }
    };
    std::thread one{hammer, 1};
    std::thread two{hammer, 2};
    one.join();
    two.join();
    EXPECT_FALSE(overlapped);
    EXPECT_EQ(file->texts.size(), 400U);
    EXPECT_EQ(text(), golden("syslog_ng/defaults.conf"));
}

} // namespace
} // namespace xpon::log_config
