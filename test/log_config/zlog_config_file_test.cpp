#include "xpon/log_config/zlog/zlog_config_file.hpp"

#include <stdexcept>

#include <gmock/gmock.h>

#include "core/failure.hpp"
#include "kit/fake_config_writer.hpp"
#include "kit/fake_ipc.hpp"
#include "kit/matchers.hpp"
#include "xpon/log_config/zlog/zlog_config_generator.hpp"
#include "xpon/log_config/zlog/zlog_module_base.hpp"

namespace xpon::log_config {
namespace {

using core::Error;
using core::fail;
using test::FakeConfigWriter;
using test::FakeIpc;
using test::IsError;
using test::IsOk;
using test::Written;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::ThrowsMessage;

constexpr auto cli = Modules_names{13};
constexpr auto ipsg = Modules_names{5};
constexpr auto netserve = Modules_names{43};

class ZlogConfigFileTest : public testing::Test {
  protected:
    template <class M, class S>
    void add(LogModules& modules, Modules_names module, int (*subject_name)(char*, S), M const& descriptor) {
        modules[module] = std::make_unique<ZlogModuleBase<M, S>>(
            generator, descriptor, module, std::size(descriptor.level), subject_name, nullptr);
    }

    /// A file of the modules 43 and 5, read by module 13.
    std::unique_ptr<ZlogConfigFile> make_file() {
        LogModules modules;
        add(modules, netserve, get_netserve_subjects_from_index, ModuleNetserve{{0, 0}});
        add(modules, ipsg, get_ipsg_subjects_from_index, ModuleIpsg{{0, 0, 0}});
        return std::make_unique<ZlogConfigFile>(std::make_unique<FakeConfigWriter>(disk), generator, cli,
                                                std::move(modules), ipc);
    }

    std::string text(ModuleIpsg const& first, ModuleNetserve const& second) {
        return std::string{generator->get_header()} + generator->generate("IPSG", first.level[0]) +
               generator->generate("IPSG_BIND", first.level[1]) +
               generator->generate("IPSG_FILTER", first.level[2]) +
               generator->generate("NETSERVE", second.level[0]) +
               generator->generate("NETSERVE_IPC", second.level[1]);
    }

    static std::vector<std::byte> bytes(std::initializer_list<int> values) {
        std::vector<std::byte> all;
        for (int const value : values) {
            all.push_back(static_cast<std::byte>(value));
        }
        return all;
    }

    std::shared_ptr<ILogConfigGenerator> generator = std::make_shared<ZlogConfigGenerator>();
    std::shared_ptr<Written> disk = std::make_shared<Written>();
    std::shared_ptr<FakeIpc> ipc = std::make_shared<FakeIpc>();
};

TEST_F(ZlogConfigFileTest, ConstructionWritesTheModulesInAscendingOrderAndTellsNobody) {
    auto const file = make_file();
    EXPECT_THAT(disk->texts, ElementsAre(text({}, {})));
    EXPECT_THAT(ipc->sent(), IsEmpty());
}

TEST_F(ZlogConfigFileTest, AFailedWriteFailsTheConstruction) {
    disk->answer = [] { return core::Result<void>{fail(Error::NoAccess, "disk full")}; };
    EXPECT_THAT([&] { make_file(); },
                ThrowsMessage<std::runtime_error>("Failed write config file for module 13"));
}

TEST_F(ZlogConfigFileTest, AChangeRewritesTheFileAndTellsItsReader) {
    auto const file = make_file();
    EXPECT_THAT(file->apply_new_config({{ipsg, ModuleIpsg{{1, 2, 3}}}}), IsOk());
    EXPECT_THAT(disk->texts, ElementsAre(text({}, {}), text({{1, 2, 3}}, {})));
    auto const sent = ipc->sent();
    ASSERT_THAT(sent, SizeIs(1));
    auto const& message = sent.front();
    EXPECT_EQ(ipc::encode(message.header, message.payload),
              bytes({0xFE, 0xFF, 0, 0, 0xD4, 0x30, 0xD5, 0x30, 13, 0, 0, 0}));
}

TEST_F(ZlogConfigFileTest, TwoChangesOfOneFileRewriteItOnceAndTellItsReaderOnce) {
    auto const file = make_file();
    EXPECT_THAT(file->apply_new_config({{netserve, ModuleNetserve{{5, 5}}}, {ipsg, ModuleIpsg{{1, 2, 3}}}}),
                IsOk());
    EXPECT_THAT(disk->texts, ElementsAre(text({}, {}), text({{1, 2, 3}}, {{5, 5}})));
    EXPECT_THAT(ipc->sent(), SizeIs(1));
}

TEST_F(ZlogConfigFileTest, TheLastOfTwoChangesOfOneModuleHolds) {
    auto const file = make_file();
    EXPECT_THAT(file->apply_new_config({{ipsg, ModuleIpsg{{1, 1, 1}}}, {ipsg, ModuleIpsg{{2, 2, 2}}}}),
                IsOk());
    EXPECT_EQ(disk->texts.back(), text({{2, 2, 2}}, {}));
}

TEST_F(ZlogConfigFileTest, ChangesOfOtherFilesLeaveItUntouchedAndTellNobody) {
    auto const file = make_file();
    EXPECT_THAT(file->apply_new_config({{Modules_names{1}, ModuleDna{}}, {cli, ModuleCli{}}}), IsOk());
    EXPECT_THAT(file->apply_new_config({}), IsOk());
    EXPECT_THAT(disk->texts, SizeIs(1));
    EXPECT_THAT(ipc->sent(), IsEmpty());
}

TEST_F(ZlogConfigFileTest, ARecordOfTheWrongTypeIsRefusedAndNothingIsWritten) {
    auto const file = make_file();
    EXPECT_THAT(file->apply_new_config({{ipsg, ModuleSessionMgr{}}}),
                IsError(Error::CommonError, "Failed update_config for module 5"));
    EXPECT_THAT(disk->texts, SizeIs(1));
    EXPECT_THAT(ipc->sent(), IsEmpty());
}

TEST_F(ZlogConfigFileTest, WhatWasTakenBeforeARefusalIsWrittenByTheNextRewrite) {
    auto const file = make_file();
    EXPECT_THAT(file->apply_new_config({{netserve, ModuleNetserve{{4, 4}}}, {ipsg, ModuleArp{}}}),
                IsError(Error::CommonError, "Failed update_config for module 5"));
    EXPECT_THAT(file->apply_new_config({{ipsg, ModuleIpsg{{1, 1, 1}}}}), IsOk());
    EXPECT_EQ(disk->texts.back(), text({{1, 1, 1}}, {{4, 4}}));
}

TEST_F(ZlogConfigFileTest, AFailedWriteTellsNobodyAndTheObjectStaysUsable) {
    auto const file = make_file();
    disk->answer = [] { return core::Result<void>{fail(Error::NoAccess, "disk full")}; };
    EXPECT_THAT(file->apply_new_config({{ipsg, ModuleIpsg{{1, 1, 1}}}}),
                IsError(Error::NoAccess, "disk full"));
    disk->answer = []() -> core::Result<void> { throw std::runtime_error("broken"); };
    EXPECT_THAT(file->apply_new_config({{ipsg, ModuleIpsg{{1, 1, 1}}}}), IsError(Error::Exception, ""));
    EXPECT_THAT(ipc->sent(), IsEmpty());
    disk->answer = [] { return core::Result<void>{core::success()}; };
    EXPECT_THAT(file->apply_new_config({{netserve, ModuleNetserve{{2, 2}}}}), IsOk());
    EXPECT_EQ(disk->texts.back(), text({{1, 1, 1}}, {{2, 2}}));
}

TEST_F(ZlogConfigFileTest, ANotificationThatFailsFailsTheCallAndTheFileStays) {
    auto const file = make_file();
    ipc->answer = [] { return core::Result<void>{fail(Error::Overflow, "queue full")}; };
    EXPECT_THAT(file->apply_new_config({{ipsg, ModuleIpsg{{1, 1, 1}}}}),
                IsError(Error::Overflow, "queue full"));
    ipc->answer = []() -> core::Result<void> { throw std::runtime_error("broken"); };
    EXPECT_THAT(file->apply_new_config({{ipsg, ModuleIpsg{{2, 2, 2}}}}), IsError(Error::Exception, ""));
    EXPECT_EQ(disk->texts.back(), text({{2, 2, 2}}, {}));
}

} // namespace
} // namespace xpon::log_config
