#include "xpon/log_config/zlog/fsm_log_module.hpp"

#include <algorithm>
#include <cstring>

#include <gmock/gmock.h>

#include "kit/accessor_spy.hpp"
#include "kit/matchers.hpp"
#include "xpon/log_config/zlog/zlog_config_generator.hpp"

namespace xpon::log_config {
namespace {

using core::Error;
using test::AccessorSpy;
using test::IsError;
using test::IsOk;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;
using testing::ThrowsMessage;

class FsmLogModuleTest : public testing::Test {
  protected:
    /// A descriptor with every word 0 but one.
    static ModuleFsmPon with_word(std::size_t word, std::uint16_t level) {
        ModuleFsmPon descriptor{};
        std::memcpy(reinterpret_cast<char*>(&descriptor) + 2 * word, &level, sizeof level);
        return descriptor;
    }

    std::shared_ptr<ILogConfigGenerator> generator = std::make_shared<ZlogConfigGenerator>();
};

TEST_F(FsmLogModuleTest, EveryWordZeroYieldsOneFatalLineForEachOf4124Categories) {
    FsmLogModule const module{{}, generator};
    auto const& text = module.get_config();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 4124);
    std::size_t fatal = 0;
    for (auto at = text.find(".=FATAL >syslog, LOG_LOCAL0; for_fatal\n"); at != std::string::npos;
         at = text.find(".=FATAL >", at + 1)) {
        ++fatal;
    }
    EXPECT_EQ(fatal, 4124U);
}

TEST_F(FsmLogModuleTest, SubjectsComeFirstThenOltPortsAndOnts) {
    FsmLogModule const module{{}, generator};
    EXPECT_THAT(module.get_config(), StartsWith("FSM.=FATAL"));
    auto const place = [&](std::string const& category) {
        return module.get_config().find("\n" + category + ".=FATAL");
    };
    auto const ordered = {place("FSM_RESYNC"), place("OLT"),       place("PON-PORT_1"), place("PON-PORT_16"),
                          place("ONT_1/1"),    place("ONT_1/256"), place("ONT_2/1"),    place("ONT_16/256")};
    EXPECT_THAT(ordered, testing::Each(testing::Ne(std::string::npos)));
    EXPECT_TRUE(std::ranges::is_sorted(ordered));
    EXPECT_THAT(module.get_config(), EndsWith("ONT_16/256.=FATAL >syslog, LOG_LOCAL0; for_fatal\n"));
}

TEST_F(FsmLogModuleTest, EachWordIsTheLevelOfItsCategory) {
    constexpr std::pair<std::size_t, char const*> cases[] = {
        {0, "FSM"},           {1, "FSM_ONT"},
        {2, "FSM_PORT"},      {10, "FSM_RESYNC"},
        {11, "OLT"},          {12, "PON-PORT_1"},
        {21, "PON-PORT_10"},  {27, "PON-PORT_16"},
        {28, "ONT_1/1"},      {283, "ONT_1/256"},
        {284, "ONT_2/1"},     {286, "ONT_2/3"},
        {4123, "ONT_16/256"}, {28 + 15 * 256, "ONT_16/1"},
    };
    auto const all_off = FsmLogModule{{}, generator}.get_config();
    for (auto const& [word, category] : cases) {
        FsmLogModule const module{with_word(word, 1), generator};
        auto expected = all_off;
        auto const line = std::string{category} + ".=FATAL >syslog, LOG_LOCAL0; for_fatal\n";
        auto const before = word == 0 ? 0 : expected.find("\n" + line);
        ASSERT_NE(before, std::string::npos);
        expected.insert((word == 0 ? 0 : before + 1) + line.size(),
                        std::string{category} + ".=ERROR >syslog, LOG_LOCAL0;\n");
        EXPECT_EQ(module.get_config(), expected) << word;
    }
}

TEST_F(FsmLogModuleTest, PortAndOntCategoriesKeepTheirUnderscore) {
    FsmLogModule const module{{}, generator};
    EXPECT_THAT(module.get_config(), testing::Not(HasSubstr("PON-PORT-")));
    EXPECT_THAT(module.get_config(), testing::Not(HasSubstr("ONT-")));
}

TEST_F(FsmLogModuleTest, AnUpdateReplacesTheRules) {
    FsmLogModule module{{}, generator};
    EXPECT_THAT(module.update_config(with_word(286, 5)), IsOk());
    EXPECT_EQ(module.get_config(), (FsmLogModule{with_word(286, 5), generator}.get_config()));
    EXPECT_THAT(module.get_config(), HasSubstr("ONT_2/3.=DEBUG"));
}

TEST_F(FsmLogModuleTest, AnotherRecordIsRefusedAndTheRulesStay) {
    FsmLogModule module{{}, generator};
    auto const before = module.get_config();
    EXPECT_THAT(module.update_config(ModuleDna{}),
                IsError(Error::CommonError, "Failed any_cast std::any to ModuleFsmPon"));
    EXPECT_THAT(module.update_config({}),
                IsError(Error::CommonError, "Failed any_cast std::any to ModuleFsmPon"));
    EXPECT_EQ(module.get_config(), before);
}

TEST_F(FsmLogModuleTest, AFailedSubjectLookupFailsTheConstruction) {
    AccessorSpy spy;
    spy.fail("get_fsm_subjects_from_index", -1);
    EXPECT_THAT([&] { FsmLogModule({}, generator); },
                ThrowsMessage<std::runtime_error>("Failed generate submodules on Base obj for 2"));
}

} // namespace
} // namespace xpon::log_config
