// The launcher, the service and every output it writes, put together as in the daemon; only the message bus
// and the commands are fakes, so that a notification can fail and a reload can be looked at.
#include <atomic>
#include <future>
#include <mutex>
#include <set>

#include <gmock/gmock.h>

#include "core/failure.hpp"
#include "kit/fake_ipc.hpp"
#include "kit/fake_logger.hpp"
#include "kit/fake_system_wrapper.hpp"
#include "kit/golden.hpp"
#include "kit/matchers.hpp"
#include "kit/random.hpp"
#include "kit/report.hpp"
#include "kit/scratch_folder.hpp"
#include "kit/wait_until.hpp"
#include "log_config/wanted.hpp"
#include "xpon/cfgdb/module_table.hpp"
#include "xpon/cfgdb/transaction.hpp"
#include "xpon/config_writer/config_writer.hpp"
#include "xpon/ipc/file_events.hpp"
#include "xpon/log_config/kernel/kernel_configurator.hpp"
#include "xpon/log_config/rsh/remote_shell_logger.hpp"
#include "xpon/log_config/service/log_config_service.hpp"
#include "xpon/log_config/syslog_ng/syslog_configurator.hpp"
#include "xpon/log_config/zlog_files/generate_zlog_config_files.hpp"
#include "xpon/service/service_launcher.hpp"
#include "xpon/system_wrapper/system_wrapper.hpp"

namespace xpon::log_config {
namespace {

using test::IsOk;
using test::wait_until;

class DeliveryTest : public testing::Test {
  protected:
    void start() {
        std::filesystem::create_directory(scratch / "zlog");
        std::filesystem::create_directory(scratch / "pts");
        auto files = generate_zlog_config_files_in(zlog, cfgdb, ipc, logger);
        ASSERT_THAT(files, IsOk());
        auto log_service = std::make_unique<LogConfigService>(
            logger, cfgdb, std::make_unique<KernelConfigurator>(system),
            std::make_unique<SyslogConfigurator>(
                system, std::make_unique<config_writer::ConfigWriter>(syslog_ng_conf)),
            std::make_unique<RemoteShellLogger>(scratch / "pts", system, logger, UpdateConfigCb{}),
            std::move(files).value(), service::ServiceMode{1});
        service = log_service.get();
        launcher = std::make_unique<service::ServiceLauncher>(std::move(log_service), logger, ipc, true);
        running = std::async(std::launch::async, [this] { return launcher->run(); });
    }

    void TearDown() override {
        EXPECT_THAT(launcher->stop(), IsOk());
        EXPECT_THAT(running.get(), IsOk());
    }

    /// One level of each module's record.
    void change_every_module() {
        cfgdb::Transaction transaction;
        for (auto const& module : cfgdb::modules()) {
            if (!module.built_in()) {
                ASSERT_THAT(transaction.set(fmt::format("module.{}.{}", module.name, module.subjects.front()),
                                            "debug"),
                            IsOk());
            }
        }
        ASSERT_THAT(transaction.commit(folder), IsOk());
    }

    /// The readers that were told, apart from the first `skipped` messages.
    std::multiset<std::uint32_t> told(std::size_t skipped) const {
        std::multiset<std::uint32_t> modules;
        auto const messages = ipc->sent();
        for (auto index = skipped; index < messages.size(); ++index) {
            modules.insert(ipc::record_in<ipc::FileChange>(messages.at(index).payload).value().module);
        }
        return modules;
    }

    test::ScratchFolder const scratch;
    std::filesystem::path const folder = scratch / "db";
    std::string const zlog = (scratch / "zlog").string() + "/";
    std::filesystem::path const syslog_ng_conf = scratch / "syslog-ng.conf";
    std::shared_ptr<test::FakeIpc> ipc = std::make_shared<test::FakeIpc>();
    std::shared_ptr<test::FakeLogger> logger = std::make_shared<test::FakeLogger>();
    std::shared_ptr<test::FakeSystemWrapper> system = std::make_shared<test::FakeSystemWrapper>();
    std::shared_ptr<cfgdb::CfgDbWrapper> cfgdb = std::make_shared<cfgdb::CfgDbWrapper>("TEST", folder);
    std::mutex mutex;
    std::string in_force; // what the last reload found in the file; guarded by mutex
    std::unique_ptr<service::ServiceLauncher> launcher;
    LogConfigService* service = nullptr; // the launcher's
    std::future<Result<void>> running;
    // Of a queue that is full after the first message.
    std::atomic<bool> full = true;
    std::atomic<int> attempts = 0;
};

TEST_F(DeliveryTest, ANotificationThatFailsAmidAListIsRepeatedWithoutANewChange) {
    ipc->answer = [&]() -> Result<void> {
        if (++attempts > 1 && full) {
            return core::fail(core::Error::Overflow, "the queue is full");
        }
        return core::success();
    };
    start();
    change_every_module();
    // Once with the list, up to the file whose notification fails, and once alone each: 17 fields that can
    // succeed.
    ASSERT_TRUE(wait_until([&] { return attempts >= 2 + 17; }));
    auto const before = ipc->sent().size();
    full = false;

    std::set<std::uint32_t> readers; // of the files that hold one of the 17 modules
    test::Wanted const wanted{folder};
    for (auto const& output : outputs()) {
        auto const name = std::string{output.name};
        if (!output.reader || output.at_start_only) {
            continue;
        }
        auto const text = wanted(output);
        if (text != test::golden("zlog_defaults/" + name)) {
            readers.insert(static_cast<std::uint32_t>(*output.reader));
            EXPECT_TRUE(wait_until([&] { return test::read_file(zlog + name) == text; })) << name;
        }
    }
    EXPECT_GE(readers.size(), 7U);
    EXPECT_TRUE(wait_until([&] {
        auto const modules = told(before);
        return std::ranges::all_of(readers, [&](auto reader) { return modules.contains(reader); });
    }));
}

TEST_F(DeliveryTest, TerminalsThatOpenDuringChangesBringNoOldSettingsBack) {
    system->answer = [this](std::string const& command) -> Result<int> {
        if (command.find("syslog-ng-ctl") == std::string::npos) {
            return 0;
        }
        {
            std::lock_guard const lock{mutex};
            in_force = test::read_file(syslog_ng_conf);
        }
        return system_wrapper::SystemWrapper{}.execute(":"); // takes its time, as a reload does
    };
    start();

    auto const count = test::rounds(200);
    auto random = test::seeded();
    test::Wanted const wanted{folder};
    OpenShells open{};
    for (int round = 1; round <= count; ++round) {
        std::vector<RemoteLoggerEvent> events(1 + test::below(random, 3));
        for (auto& event : events) {
            auto const terminal = test::below(random, 15);
            open.at(terminal) = !open.at(terminal);
            event = {static_cast<std::int64_t>(terminal),
                     open.at(terminal) ? RemoteLoggerAction::Add : RemoteLoggerAction::Remove};
        }
        cfgdb::Transaction transaction;
        ASSERT_THAT(transaction.set("syslog.rsh.level", std::to_string(round % 6)), IsOk());
        auto const terminals = std::async(std::launch::async, [&] {
            for (auto const& event : events) {
                EXPECT_THAT(service->update_pts(event), IsOk());
            }
        });
        ASSERT_THAT(transaction.commit(folder), IsOk());
        terminals.wait();
        // No terminal's event is under way: settings that are old now would stay in force.
        auto const expected = wanted(syslog_ng_output(), open);
        ASSERT_TRUE(wait_until([&] {
            std::lock_guard const lock{mutex};
            return in_force == expected;
        })) << "old settings in force after round "
            << round;
    }
    test::report(fmt::format("changes while terminals open and close\t{} rounds\tnever were old settings in "
                             "force at the end",
                             count));
}

} // namespace
} // namespace xpon::log_config
