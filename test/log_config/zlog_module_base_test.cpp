#include "xpon/log_config/zlog/zlog_module_base.hpp"

#include <gmock/gmock.h>

#include "kit/matchers.hpp"
#include "kit/scratch_folder.hpp"
#include "xpon/log_config/zlog/add_module.hpp"
#include "xpon/log_config/zlog/zlog_config_generator.hpp"

namespace xpon::log_config {
namespace {

using core::Error;
using test::IsError;
using test::IsOk;
using testing::ThrowsMessage;

using IpsgModule = ZlogModuleBase<ModuleIpsg, Ipsg_subjects>;

constexpr auto ipsg = Modules_names{5};

class ZlogModuleBaseTest : public testing::Test {
  protected:
    IpsgModule make(ModuleIpsg const& descriptor, unsigned long count = 3) {
        return IpsgModule{generator, descriptor, ipsg, count, get_ipsg_subjects_from_index, {}};
    }

    std::string rules(std::string const& category, unsigned short level) {
        return generator->generate(category, level);
    }

    std::shared_ptr<ILogConfigGenerator> generator = std::make_shared<ZlogConfigGenerator>();
};

TEST_F(ZlogModuleBaseTest, AConstructedObjectHasTheRulesOfItsDescriptor) {
    EXPECT_EQ(make({{0, 3, 5}}).get_config(),
              rules("IPSG", 0) + rules("IPSG_BIND", 3) + rules("IPSG_FILTER", 5));
}

TEST_F(ZlogModuleBaseTest, LevelsOfZeroYieldOneFatalLineForEachCategory) {
    EXPECT_EQ(make({{0, 0, 0}}).get_config(), "IPSG.=FATAL >syslog, LOG_LOCAL0; for_fatal\n"
                                              "IPSG_BIND.=FATAL >syslog, LOG_LOCAL0; for_fatal\n"
                                              "IPSG_FILTER.=FATAL >syslog, LOG_LOCAL0; for_fatal\n");
}

TEST_F(ZlogModuleBaseTest, AnUpdateReplacesTheRules) {
    auto module = make({{0, 0, 0}});
    EXPECT_THAT(module.update_config(ModuleIpsg{{1, 2, 65535}}), IsOk());
    EXPECT_EQ(module.get_config(), rules("IPSG", 1) + rules("IPSG_BIND", 2) + rules("IPSG_FILTER", 5));
}

TEST_F(ZlogModuleBaseTest, AnotherRecordIsRefusedAndTheRulesStay) {
    auto module = make({{1, 2, 3}});
    auto const before = module.get_config();
    auto const message = std::string{"Failed any_cast std::any to "} + typeid(ModuleIpsg).name();
    EXPECT_THAT(module.update_config(ModuleArp{}), IsError(Error::CommonError, message));
    EXPECT_THAT(module.update_config(std::any{}), IsError(Error::CommonError, message));
    ModuleIpsg descriptor{};
    EXPECT_THAT(module.update_config(&descriptor), IsError(Error::CommonError, message));
    EXPECT_EQ(module.get_config(), before);
}

TEST_F(ZlogModuleBaseTest, ALookupThatFailsFailsTheConstruction) {
    EXPECT_THAT([&] { make({}, 4); },
                ThrowsMessage<std::runtime_error>("Failed generate submodules on Base obj for 5"));
}

class AddModuleTest : public ZlogModuleBaseTest {
  protected:
    Result<void> add(int count, ReadDescriptor<ModuleIpsg> read) {
        return add_module<ModuleIpsg, Ipsg_subjects>(cfgdb, modules, generator, ipsg, count,
                                                     get_ipsg_subjects_from_index, std::move(read), {});
    }

    test::ScratchFolder folder;
    std::shared_ptr<cfgdb::CfgDbWrapper> cfgdb = std::make_shared<cfgdb::CfgDbWrapper>("TEST", folder.path());
    LogModules modules;
};

TEST_F(AddModuleTest, PlacesAnObjectWithTheStoredLevels) {
    EXPECT_THAT(add(3, getRunDb_CommonGCfg_logging_module_ipsg), IsOk());
    EXPECT_EQ(modules.at(ipsg)->get_config(),
              rules("IPSG", 3) + rules("IPSG_BIND", 3) + rules("IPSG_FILTER", 3));
}

TEST_F(AddModuleTest, TheReaderGetsTheRawHandleAZeroedRecordAndAZeroKey) {
    auto const read = [&](void const* db, ModuleIpsg* out, unsigned short const* key) {
        EXPECT_EQ(db, cfgdb->db());
        EXPECT_EQ(out->level[0] | out->level[1] | out->level[2], 0);
        EXPECT_EQ(key[0] | key[1] | key[2], 0);
        out->level[1] = 4;
        return 0;
    };
    EXPECT_THAT(add(3, read), IsOk());
    EXPECT_EQ(modules.at(ipsg)->get_config(),
              rules("IPSG", 0) + rules("IPSG_BIND", 4) + rules("IPSG_FILTER", 0));
}

TEST_F(AddModuleTest, AFailedReadLeavesTheMapAlone) {
    EXPECT_THAT(add(3, [](auto...) { return 1; }),
                IsError(Error::ErrorCApi, "Failed get config for ModuleIpsg"));
    EXPECT_TRUE(modules.empty());
}

TEST_F(AddModuleTest, ASecondObjectTakesThePlaceOfTheFirst) {
    EXPECT_THAT(add(3, getRunDb_CommonGCfg_logging_module_ipsg), IsOk());
    EXPECT_THAT(add(1, getRunDb_CommonGCfg_logging_module_ipsg), IsOk());
    EXPECT_EQ(modules.size(), 1U);
    EXPECT_EQ(modules.at(ipsg)->get_config(), rules("IPSG", 3));
}

TEST_F(AddModuleTest, ExceptionsOfTheConstructorPass) {
    EXPECT_THAT([&] { std::ignore = add(9, getRunDb_CommonGCfg_logging_module_ipsg); },
                ThrowsMessage<std::runtime_error>("Failed generate submodules on Base obj for 5"));
    EXPECT_FALSE(modules.contains(ipsg) && modules.at(ipsg) != nullptr);
}

} // namespace
} // namespace xpon::log_config
