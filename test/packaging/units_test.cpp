#include <string>

#include <gmock/gmock.h>

#include "kit/child_process.hpp"
#include "kit/scratch_folder.hpp"

namespace xpon::test {
namespace {

struct Unit : testing::TestWithParam<char const*> {
    std::string file = std::string{XPON_PACKAGING "/systemd/"} + GetParam() + ".service";
    ScratchFolder folder;
};

TEST_P(Unit, IsExposedByTwoPointsOfTenAtMost) {
    // The threshold is in tenths.
    ChildProcess analysis{
        {.argv = {"systemd-analyze", "security", "--offline=yes", "--no-pager", "--threshold=20", file},
         .output = folder / "output"}};
    EXPECT_EQ(analysis.wait(), 0) << read_file(folder / "output");
}

TEST_P(Unit, DoesNotSayThatItCanBeReloaded) {
    EXPECT_THAT(read_file(file), testing::Not(testing::HasSubstr("\nExecReload")));
}

TEST(UnitFile, OfTheDaemonKnowsTheBrokerOnlyWhereItIsInstalledWithIt) {
    std::string const folder = XPON_PACKAGING "/systemd";
    EXPECT_THAT(read_file(folder + "/log-config.service"), testing::Not(testing::HasSubstr("ipc-broker")));
    EXPECT_THAT(read_file(folder + "/log-config.service.d/ipc-broker.conf"),
                testing::EndsWith("[Unit]\nWants=ipc-broker.service\nAfter=ipc-broker.service\n"));
}

INSTANTIATE_TEST_SUITE_P(Packaging, Unit, testing::Values("log-config", "ipc-broker", "logctl-recover"),
                         [](auto const& unit) {
                             std::string name{unit.param};
                             std::erase(name, '-');
                             return name;
                         });

} // namespace
} // namespace xpon::test
