#include "xpon/service/service_mode.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/matchers.hpp"

namespace xpon::service {
namespace {

using core::Error;
using test::IsError;
using test::IsOk;

constexpr auto mode(int value) {
    return static_cast<ServiceMode>(value);
}

TEST(ServiceMode, FlagsCombineIntoAMask) {
    EXPECT_EQ(ServiceMode::Master | ServiceMode::Standby, 0x06);
    EXPECT_EQ((ServiceMode::Master | ServiceMode::Standby) | ServiceMode::Standalone, 0x16);
    EXPECT_EQ(static_cast<unsigned char>(0xE0) | ServiceMode::Init, 0xE1);
    EXPECT_EQ(ServiceMode::Init | ServiceMode::Init, 0x01);
}

TEST(ServiceMode, EveryModeHasItsName) {
    constexpr std::pair<int, char const*> cases[] = {
        {0x01, "init"},           {0x02, "master"},         {0x04, "standby"},
        {0x10, "standalone"},     {0x00, "unknown (0x00)"}, {0x06, "unknown (0x06)"},
        {0x08, "unknown (0x08)"}, {0xFF, "unknown (0xff)"},
    };
    for (auto const& [value, name] : cases) {
        EXPECT_EQ(to_string(mode(value)), name) << value;
    }
}

TEST(IsAllowedMode, ARoleIsAllowedOnlyByItsBitAndStandaloneAlways) {
    for (int mask = 0; mask <= 0xFF; ++mask) {
        auto const byte = static_cast<unsigned char>(mask);
        EXPECT_EQ(is_allowed_mode(ServiceMode::Init, byte).has_value(), (mask & 0x01) != 0) << mask;
        EXPECT_EQ(is_allowed_mode(ServiceMode::Master, byte).has_value(), (mask & 0x02) != 0) << mask;
        EXPECT_EQ(is_allowed_mode(ServiceMode::Standby, byte).has_value(), (mask & 0x04) != 0) << mask;
        EXPECT_THAT(is_allowed_mode(ServiceMode::Standalone, byte), IsOk()) << mask;
    }
}

TEST(IsAllowedMode, ANumberThatIsNoModeNeedsAllItsBitsAndAtLeastOne) {
    constexpr struct {
        int mode;
        unsigned char mask;
        bool allowed;
    } cases[] = {
        {0x00, 0x00, false}, {0x00, 0xFF, false}, {0x06, 0x06, true},  {0x06, 0x02, false},
        {0x06, 0x16, true},  {0x12, 0x10, false}, {0x80, 0x7F, false}, {0xFF, 0xFF, true},
    };
    for (auto const& row : cases) {
        EXPECT_EQ(is_allowed_mode(mode(row.mode), row.mask).has_value(), row.allowed)
            << row.mode << " under " << int{row.mask};
    }
}

TEST(IsAllowedMode, TheMasksOfAServiceThatKnowsTheRolesAllowTheRolesAndStandalone) {
    unsigned char const roles = ServiceMode::Master | ServiceMode::Standby;
    unsigned char const with_standalone = roles | ServiceMode::Standalone;
    for (unsigned char const mask : {roles, with_standalone}) {
        EXPECT_THAT(is_allowed_mode(ServiceMode::Master, mask), IsOk());
        EXPECT_THAT(is_allowed_mode(ServiceMode::Standby, mask), IsOk());
        EXPECT_THAT(is_allowed_mode(ServiceMode::Standalone, mask), IsOk());
    }
    EXPECT_THAT(is_allowed_mode(ServiceMode::Init, roles),
                IsError(Error::InvalidState, "Mode init (0x01) is not allowed by the mask 0x06"));
    EXPECT_THAT(is_allowed_mode(ServiceMode::Init, with_standalone),
                IsError(Error::InvalidState, "Mode init (0x01) is not allowed by the mask 0x16"));
}

TEST(IsAllowedMode, TheErrorNamesModeAndMask) {
    EXPECT_THAT(is_allowed_mode(ServiceMode::Standby, 0x02),
                IsError(Error::InvalidState, "Mode standby (0x04) is not allowed by the mask 0x02"));
    EXPECT_THAT(is_allowed_mode(mode(0x20), 0x00),
                IsError(Error::InvalidState, "Mode unknown (0x20) (0x20) is not allowed by the mask 0x00"));
}

} // namespace
} // namespace xpon::service
