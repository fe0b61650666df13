#include "xpon/log_config/kernel/kernel_configurator.hpp"

#include <stdexcept>

#include <gmock/gmock.h>

#include "core/failure.hpp"
#include "kit/fake_system_wrapper.hpp"
#include "kit/matchers.hpp"

namespace xpon::log_config {
namespace {

using core::Error;
using test::FakeSystemWrapper;
using test::IsError;
using test::IsOk;
using testing::ElementsAre;

class KernelConfiguratorTest : public testing::Test {
  protected:
    std::shared_ptr<FakeSystemWrapper> system = std::make_shared<FakeSystemWrapper>();
    KernelConfigurator configurator{system};
};

TEST_F(KernelConfiguratorTest, WritesTheKernelsOwnNumber) {
    constexpr std::pair<std::uint16_t, char const*> cases[] = {
        {0, "echo 2 > /proc/sys/kernel/printk"}, {1, "echo 3 > /proc/sys/kernel/printk"},
        {2, "echo 4 > /proc/sys/kernel/printk"}, {3, "echo 5 > /proc/sys/kernel/printk"},
        {4, "echo 6 > /proc/sys/kernel/printk"}, {5, "echo 7 > /proc/sys/kernel/printk"},
        {6, "echo 8 > /proc/sys/kernel/printk"}, {65535, "echo 65537 > /proc/sys/kernel/printk"},
    };
    for (auto const& [level, command] : cases) {
        EXPECT_THAT(configurator.apply_new_config({level}), IsOk());
        EXPECT_EQ(system->commands().back(), command);
    }
}

TEST_F(KernelConfiguratorTest, ACommandThatExitsNonZeroIsAFailure) {
    system->answer = [](auto const&) -> core::Result<int> { return 1; };
    EXPECT_THAT(configurator.apply_new_config({4}),
                IsError(Error::CommonError, "Failed execute: \"echo 6 > /proc/sys/kernel/printk\""));
}

TEST_F(KernelConfiguratorTest, ACommandThatCannotRunIsReportedInTheSameWords) {
    system->answer = [](auto const&) -> core::Result<int> { return core::fail(Error::NoAccess, "no shell"); };
    EXPECT_THAT(configurator.apply_new_config({4}),
                IsError(Error::CommonError, "Failed execute: \"echo 6 > /proc/sys/kernel/printk\""));
}

TEST_F(KernelConfiguratorTest, TheSameLevelTwiceRunsTheCommandTwice) {
    EXPECT_THAT(configurator.apply_new_config({5}), IsOk());
    EXPECT_THAT(configurator.apply_new_config({5}), IsOk());
    EXPECT_THAT(system->commands(),
                ElementsAre("echo 7 > /proc/sys/kernel/printk", "echo 7 > /proc/sys/kernel/printk"));
}

TEST_F(KernelConfiguratorTest, ExceptionsOfTheWrapperPass) {
    system->answer = [](auto const&) -> core::Result<int> { throw std::runtime_error("broken"); };
    EXPECT_THROW(std::ignore = configurator.apply_new_config({5}), std::runtime_error);
}

} // namespace
} // namespace xpon::log_config
