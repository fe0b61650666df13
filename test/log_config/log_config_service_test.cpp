#include "xpon/log_config/service/log_config_service.hpp"

#include <cerrno>
#include <latch>
#include <optional>
#include <stdexcept>
#include <thread>

#include <gmock/gmock.h>

#include "core/failure.hpp"
#include "kit/accessor_spy.hpp"
#include "kit/fake_logger.hpp"
#include "kit/matchers.hpp"
#include "kit/scratch_folder.hpp"
#include "log_config/syslog_settings_samples.hpp"
#include "xpon/cfgdb/transaction.hpp"
#include "xpon/log_config/syslog_ng/syslog_ng_text.hpp"

namespace xpon::log_config {
namespace {

/// What the service asks its library about modes, and what that answers where it is not asked itself.
struct ModeChecks {
    std::vector<std::pair<service::ServiceMode, int>> asked;
    std::optional<core::ErrorPayload> refusal;
};
ModeChecks mode_checks;

} // namespace
} // namespace xpon::log_config

// NOLINTBEGIN(bugprone-reserved-identifier): the name that the linker's --wrap gives, for is_allowed_mode
xpon::core::Result<void> wrapped_is_allowed_mode(
    xpon::service::ServiceMode const& mode,
    unsigned char const& mask) __asm__("__wrap__ZN4xpon7service15is_allowed_modeERKNS0_11ServiceModeERKh");
// NOLINTEND(bugprone-reserved-identifier)

xpon::core::Result<void> wrapped_is_allowed_mode(xpon::service::ServiceMode const& mode,
                                                 unsigned char const& mask) {
    auto& checks = xpon::log_config::mode_checks;
    checks.asked.emplace_back(mode, mask);
    if (checks.refusal) {
        return *checks.refusal;
    }
    return xpon::core::success();
}

namespace xpon::log_config {
namespace {

using core::Error;
using core::fail;
using core::LogLevel;
using service::ServiceCtx;
using service::ServiceMode;
using test::AccessorSpy;
using test::FakeLogger;
using test::IsError;
using test::IsOk;
using testing::ElementsAre;
using testing::IsEmpty;

/// What reached the outputs, in order, and what they answer.
struct Outputs {
    std::vector<std::string> trace;
    std::vector<SyslogSettings> settings;
    std::vector<RemoteLoggerEvent> events;
    std::vector<ModuleChanges> changes; // as the first file saw them
    UpdateConfigCb callback;
    std::vector<std::string> released;
    std::map<std::string, std::function<Result<void>()>> answers;

    Result<void> answer(std::string const& name) {
        trace.push_back(name);
        auto const found = answers.find(name);
        if (found == answers.end()) {
            return core::success();
        }
        auto const act = found->second; // which may change the answers
        return act();
    }
};

class FakeKernelConfigurator : public IKernelConfigurator {
  public:
    explicit FakeKernelConfigurator(std::shared_ptr<Outputs> to)
      : outputs{std::move(to)} {}
    ~FakeKernelConfigurator() override { outputs->released.emplace_back("kernel"); }
    Result<void> apply_new_config(SyslogKernelDest const& dest) override {
        return outputs->answer("kernel " + std::to_string(dest.level));
    }

  private:
    std::shared_ptr<Outputs> outputs;
};

class FakeSyslogConfigurator : public ISyslogConfigurator {
  public:
    explicit FakeSyslogConfigurator(std::shared_ptr<Outputs> to)
      : outputs{std::move(to)} {}
    ~FakeSyslogConfigurator() override { outputs->released.emplace_back("syslog"); }
    Result<void> apply_new_config(SyslogSettings const& settings) override {
        outputs->settings.push_back(settings);
        return outputs->answer("syslog");
    }
    Result<void> update_remote_logging(RemoteLoggerEvent const& event) override {
        outputs->events.push_back(event);
        return outputs->answer("terminal");
    }

  private:
    std::shared_ptr<Outputs> outputs;
};

class FakeRemoteShellLogger : public IRemoteShellLogger {
  public:
    explicit FakeRemoteShellLogger(std::shared_ptr<Outputs> to)
      : outputs{std::move(to)} {}
    ~FakeRemoteShellLogger() override { outputs->released.emplace_back("rsh"); }
    Result<void> set_update_config_cb(UpdateConfigCb&& callback) override {
        outputs->callback = std::move(callback);
        return outputs->answer("callback");
    }

  private:
    std::shared_ptr<Outputs> outputs;
};

class FakeLogConfigFile : public ILogConfigFile {
  public:
    FakeLogConfigFile(std::shared_ptr<Outputs> to, std::string file_name)
      : outputs{std::move(to)}
      , name{std::move(file_name)} {}
    ~FakeLogConfigFile() override { outputs->released.push_back(name); }
    Result<void> apply_new_config(ModuleChanges const& changes) override {
        if (name == "file 1") {
            outputs->changes.push_back(changes);
        }
        return outputs->answer(name);
    }

  private:
    std::shared_ptr<Outputs> outputs;
    std::string name;
};

/// What an exception that is caught leaves in the log.
auto const an_exception =
    ElementsAre("An std::exception was thrown: broken ", "Error: Exception", "Error: Exception");

class LogConfigServiceTest : public testing::Test {
  protected:
    LogConfigServiceTest() { mode_checks = {}; }

    std::unique_ptr<LogConfigService> make_service(ServiceMode mode = ServiceMode{1}, int files = 2) {
        std::vector<std::unique_ptr<ILogConfigFile>> log_files;
        for (int number = 1; number <= files; ++number) {
            log_files.push_back(
                std::make_unique<FakeLogConfigFile>(outputs, "file " + std::to_string(number)));
        }
        return std::make_unique<LogConfigService>(
            logger, cfgdb, std::make_unique<FakeKernelConfigurator>(outputs),
            std::make_unique<FakeSyslogConfigurator>(outputs),
            std::make_unique<FakeRemoteShellLogger>(outputs), std::move(log_files), mode);
    }

    /// Runs the service until it serves, does something from another thread, stops it; returns what `run`
    /// did.
    Result<void> run(LogConfigService& service, std::function<void()> const& while_serving = [] {}) {
        std::thread other;
        ServiceCtx const ctx{[&] {
            other = std::thread{[&] {
                while_serving();
                std::ignore = service.stop({});
            }};
        }};
        auto result = service.run(ctx);
        if (other.joinable()) {
            other.join();
        }
        return result;
    }

    Result<void> change(LogConfigService& service, std::vector<std::uint32_t> const& field_ids) {
        std::vector<Config_change> changes;
        for (auto const field_id : field_ids) {
            changes.push_back({field_id, 0, 0});
        }
        return service.config_change({}, changes);
    }

    void store(std::vector<std::pair<std::string, std::string>> const& settings) {
        cfgdb::Transaction transaction;
        for (auto const& [path, value] : settings) {
            ASSERT_THAT(transaction.set(path, value), IsOk());
        }
        ASSERT_THAT(transaction.commit(folder.path()), IsOk());
    }

    void let_fail(std::string const& output, Error error = Error::CommonError,
                  std::string const& text = "no") {
        outputs->answers[output] = [=] { return Result<void>{core::ErrorPayload{error, text}}; };
    }

    void let_throw(std::string const& output) {
        outputs->answers[output] = []() -> Result<void> { throw std::runtime_error("broken"); };
    }

    /// The file levels of the settings that were applied, in order.
    std::vector<int> file_levels() const {
        std::vector<int> levels;
        for (auto const& settings : outputs->settings) {
            levels.push_back(settings.file.level);
        }
        return levels;
    }

    static std::string accessor(std::string const& name) { return "getRunDb_CommonGCfg_logging_" + name; }

    test::ScratchFolder folder;
    std::shared_ptr<FakeLogger> logger = std::make_shared<FakeLogger>();
    std::shared_ptr<cfgdb::CfgDbWrapper> cfgdb = std::make_shared<cfgdb::CfgDbWrapper>("TEST", folder.path());
    std::shared_ptr<Outputs> outputs = std::make_shared<Outputs>();
    AccessorSpy spy;
};

// --- construction and destruction

TEST_F(LogConfigServiceTest, ConstructionReadsAndWritesNothing) {
    auto const service = make_service();
    EXPECT_THAT(outputs->trace, IsEmpty());
    EXPECT_THAT(spy.calls(), IsEmpty());
}

TEST_F(LogConfigServiceTest, FilesAreReleasedFirstThenTheShellLoggerAndTheConfigurators) {
    make_service().reset();
    // The files stand in one vector; among themselves their order is the vector's own.
    EXPECT_THAT(outputs->released, ElementsAre("file 1", "file 2", "rsh", "syslog", "kernel"));
}

// --- run and start_up

TEST_F(LogConfigServiceTest, StartUpAppliesKernelThenSyslogThenInstallsTheCallback) {
    auto const service = make_service();
    EXPECT_THAT(run(*service), IsOk());
    EXPECT_THAT(outputs->trace, ElementsAre("kernel 2", "syslog", "callback"));
    EXPECT_THAT(logger->texts(), IsEmpty());
}

TEST_F(LogConfigServiceTest, TheZlogFilesAreNotTouchedAtStartUp) {
    auto const service = make_service();
    EXPECT_THAT(run(*service), IsOk());
    EXPECT_THAT(outputs->changes, IsEmpty());
}

TEST_F(LogConfigServiceTest, AFailingKernelLevelPreventsSyslogAndCallback) {
    let_fail("kernel 2", Error::CommonError, "text");
    auto const service = make_service();
    EXPECT_THAT(run(*service), IsError(Error::CommonError, ""));
    EXPECT_THAT(outputs->trace, ElementsAre("kernel 2"));
    EXPECT_THAT(logger->texts(),
                ElementsAre("Error: CommonError. Message: text.", "Error: CommonError",
                            "Error: CommonError. Message: Config update for kernel logging config failed "
                            "(Error: CommonError).",
                            "Error: CommonError"));
}

TEST_F(LogConfigServiceTest, StartUpItselfReturnsTheWrappedErrors) {
    auto const service = make_service();
    let_fail("callback", Error::NoAccess, "no");
    EXPECT_THAT(service->start_up(),
                IsError(Error::CommonError, "Set callback for rsh failed (Error: NoAccess. Message: no.)"));
    let_fail("syslog");
    EXPECT_THAT(service->start_up(),
                IsError(Error::CommonError, "Config update for syslog config failed (Error: CommonError)"));
    let_fail("kernel 2");
    EXPECT_THAT(
        service->start_up(),
        IsError(Error::CommonError, "Config update for kernel logging config failed (Error: CommonError)"));
}

TEST_F(LogConfigServiceTest, AFailingSyslogUpdatePreventsTheCallback) {
    let_fail("syslog");
    auto const service = make_service();
    EXPECT_THAT(run(*service), IsError(Error::CommonError, ""));
    EXPECT_THAT(outputs->trace, ElementsAre("kernel 2", "syslog"));
}

TEST_F(LogConfigServiceTest, AnExceptionOfTheCallbackInstallationBecomesException) {
    let_throw("callback");
    auto const service = make_service();
    EXPECT_THAT(run(*service), IsError(Error::Exception, ""));
    EXPECT_THAT(logger->texts(), an_exception);
}

TEST_F(LogConfigServiceTest, TheInstalledCallbackLeadsToUpdatePts) {
    auto const service = make_service();
    EXPECT_THAT(service->start_up(), IsOk());
    outputs->trace.clear();
    EXPECT_THAT(outputs->callback({3, RemoteLoggerAction::Add}), IsOk());
    EXPECT_THAT(outputs->trace, ElementsAre("terminal", "syslog"));
    let_fail("terminal", Error::Overflow);
    EXPECT_THAT(outputs->callback({3, RemoteLoggerAction::Add}), IsError(Error::Overflow, ""));
}

// --- the mode

TEST_F(LogConfigServiceTest, RunAndMasterChangeAskWithMasksOfTheirOwn) {
    auto const service = make_service();
    EXPECT_THAT(run(*service, [&] { std::ignore = service->master_change({}); }), IsOk());
    EXPECT_THAT(mode_checks.asked, ElementsAre(std::pair{ServiceMode::Standalone, 0x02 | 0x04 | 0x10},
                                               std::pair{ServiceMode::Standalone, 0x02 | 0x04}));
}

TEST_F(LogConfigServiceTest, AModeThatIsNotAllowedIsLoggedAndReturnedAndNothingIsDone) {
    mode_checks.refusal = fail(Error::InvalidState, "not now");
    auto const service = make_service();
    EXPECT_THAT(run(*service), IsError(Error::InvalidState, ""));
    EXPECT_THAT(service->master_change({}), IsError(Error::InvalidState, ""));
    EXPECT_THAT(outputs->trace, IsEmpty());
    EXPECT_THAT(logger->texts(),
                ElementsAre("Error: InvalidState. Message: not now.", "Error: InvalidState",
                            "Error: InvalidState. Message: not now.", "Error: InvalidState"));
}

// --- master change, sync, stop

TEST_F(LogConfigServiceTest, TheFirstMasterChangeAfterRunFindsTheModeUnchanged) {
    auto const service = make_service();
    Result<void> changed = core::success();
    EXPECT_THAT(run(*service, [&] { changed = service->master_change({}); }), IsOk());
    EXPECT_THAT(changed, IsOk());
    EXPECT_THAT(outputs->trace, ElementsAre("kernel 2", "syslog", "callback"));
    EXPECT_THAT(logger->texts(), ElementsAre("Master-change event with mode: standalone"));
    EXPECT_EQ(logger->lines().front().level, LogLevel::Error);
}

TEST_F(LogConfigServiceTest, AMasterChangeAsksTheLoggerOnce) {
    auto const service = make_service(ServiceMode::Standalone);
    EXPECT_THAT(service->master_change({}), IsOk());
    EXPECT_THAT(logger->asked(), ElementsAre(LogLevel::Error));
}

TEST_F(LogConfigServiceTest, AMasterChangeOutOfAnotherModeReconfiguresSyslog) {
    for (auto const mode : {ServiceMode::Init, ServiceMode::Master, ServiceMode::Standby}) {
        outputs->trace.clear();
        auto const service = make_service(mode);
        EXPECT_THAT(service->master_change({}), IsOk());
        EXPECT_THAT(outputs->trace, ElementsAre("syslog"));
        EXPECT_THAT(service->master_change({}), IsOk());
        EXPECT_THAT(outputs->trace, ElementsAre("syslog")) << "the second finds the mode unchanged";
    }
}

TEST_F(LogConfigServiceTest, AFailedUpdateInAMasterChangeIsLoggedAndReturned) {
    let_fail("syslog", Error::CommonError, "Failed reload syslog");
    auto const service = make_service();
    EXPECT_THAT(service->master_change({}), IsError(Error::CommonError, ""));
    EXPECT_THAT(logger->texts(), ElementsAre("Master-change event with mode: standalone",
                                             "Error: CommonError. Message: Failed reload syslog.",
                                             "Error: CommonError", "Error: CommonError"));
}

TEST_F(LogConfigServiceTest, AnExceptionInAMasterChangeIsLoggedAndBecomesException) {
    spy.make_throw(accessor("syslog_remote"), "broken");
    auto const service = make_service();
    EXPECT_THAT(service->master_change({}), IsError(Error::Exception, ""));
    EXPECT_THAT(logger->texts(), ElementsAre("Master-change event with mode: standalone",
                                             "An std::exception was thrown: broken ", "Error: Exception",
                                             "Error: Exception", "Error: Exception"));
}

TEST_F(LogConfigServiceTest, SyncAlwaysSucceedsAndDoesNothing) {
    auto const service = make_service();
    EXPECT_THAT(service->sync({}), IsOk());
    EXPECT_THAT(outputs->trace, IsEmpty());
}

TEST_F(LogConfigServiceTest, NeedsNoMasterChangeEvent) {
    EXPECT_FALSE(make_service()->is_required_master_change_event());
}

// --- the kernel level

TEST_F(LogConfigServiceTest, AKernelLevelThatCannotBeReadRunsNothing) {
    spy.fail(accessor("syslog_kernel"), -1, EIO);
    auto const service = make_service();
    EXPECT_THAT(service->update_kernel_configurator(), IsError(Error::ErrorCApi, ""));
    EXPECT_EQ(errno, 0);
    EXPECT_THAT(outputs->trace, IsEmpty());
    EXPECT_THAT(logger->texts(), ElementsAre("C API function returned -1, errno=5"));
}

TEST_F(LogConfigServiceTest, ErrnoIsLeftOutWhereItIsZero) {
    spy.fail(accessor("syslog_kernel"), 3);
    auto const service = make_service();
    errno = 0;
    EXPECT_THAT(service->update_kernel_configurator(), IsError(Error::ErrorCApi, ""));
    EXPECT_THAT(logger->texts(), ElementsAre("C API function returned 3"));
}

TEST_F(LogConfigServiceTest, AnExceptionOfTheKernelConfiguratorBecomesException) {
    let_throw("kernel 2");
    auto const service = make_service();
    EXPECT_THAT(service->update_kernel_configurator(), IsError(Error::Exception, ""));
    EXPECT_THAT(logger->texts(), an_exception);
}

TEST_F(LogConfigServiceTest, AnythingElseThatIsThrownBecomesExceptionToo) {
    outputs->answers["kernel 2"] = []() -> Result<void> { throw 7; };
    auto const service = make_service();
    EXPECT_THAT(service->update_kernel_configurator(), IsError(Error::Exception, ""));
    EXPECT_EQ(logger->texts().front(), "An exception was thrown. ");
}

// --- the syslog settings

TEST_F(LogConfigServiceTest, TheSettingsAreReadInThisOrderWithoutTheKernelLevel) {
    auto const service = make_service();
    EXPECT_THAT(service->get_full_syslog_config(), IsOk());
    EXPECT_THAT(spy.calls(),
                ElementsAre("init_SyslogSettings", accessor("syslog_remote"), accessor("syslog_rsh"),
                            accessor("syslog_file"), accessor("syslog_console")));
}

TEST_F(LogConfigServiceTest, TheDefaultsOfAFreshDatabaseMakeTheWholeRecord) {
    auto const settings = make_service()->get_full_syslog_config();
    auto const expected = default_settings();
    ASSERT_THAT(settings, IsOk());
    EXPECT_EQ(std::memcmp(&settings.value(), &expected, sizeof expected), 0);
}

TEST_F(LogConfigServiceTest, TheRecordHoldsTheDefaultKernelLevelWhateverIsStored) {
    store({{"syslog.kernel.level", "debug"}, {"syslog.rsh.level", "debug"}});
    auto const settings = make_service()->get_full_syslog_config();
    ASSERT_THAT(settings, IsOk());
    EXPECT_EQ(settings.value().kernel.level, 2);
    EXPECT_EQ(settings.value().rsh.level, 5);
}

TEST_F(LogConfigServiceTest, TheFirstFailureEndsTheReading) {
    std::vector<std::string> const order{"init_SyslogSettings", accessor("syslog_remote"),
                                         accessor("syslog_rsh"), accessor("syslog_file"),
                                         accessor("syslog_console")};
    auto const service = make_service();
    for (std::size_t failing = 0; failing < order.size(); ++failing) {
        spy.clear();
        spy.fail(order[failing], -1, EINVAL);
        EXPECT_THAT(service->get_full_syslog_config(), IsError(Error::ErrorCApi, ""));
        EXPECT_EQ(errno, 0);
        EXPECT_EQ(spy.calls(), (std::vector<std::string>{
                                   order.begin(), order.begin() + static_cast<std::ptrdiff_t>(failing) + 1}));
        EXPECT_EQ(logger->texts().back(), "C API function returned -1, errno=22");
    }
    // Each call reports with a place of its own.
    auto const lines = logger->lines();
    for (std::size_t line = 1; line < lines.size(); ++line) {
        EXPECT_GT(lines[line].where.line(), lines[line - 1].where.line());
    }
}

TEST_F(LogConfigServiceTest, ErrnoIsLeftAloneWhenEveryCallSucceeds) {
    auto const service = make_service();
    errno = ENOENT;
    EXPECT_THAT(service->get_full_syslog_config(), IsOk());
    EXPECT_EQ(errno, ENOENT);
    errno = 0;
}

TEST_F(LogConfigServiceTest, ErrnoIsClearedEvenIfNothingIsLogged) {
    logger = std::make_shared<FakeLogger>(LogLevel::Fatal);
    spy.fail(accessor("syslog_rsh"), -1, EINVAL);
    EXPECT_THAT(make_service()->get_full_syslog_config(), IsError(Error::ErrorCApi, ""));
    EXPECT_EQ(errno, 0);
    EXPECT_THAT(logger->texts(), IsEmpty());
}

TEST_F(LogConfigServiceTest, InStandbyNoReceiverIsConfigured) {
    store({{"syslog.remote.1.address", "127.0.0.1"}, {"syslog.remote.3.address", "127.0.0.2"}});
    auto const service = make_service(ServiceMode::Standby);
    EXPECT_THAT(service->update_syslog_configurator(), IsOk());
    EXPECT_TRUE(spy.was_called("init_SyslogNetworkDest"));
    ASSERT_EQ(outputs->settings.size(), 1U);
    for (auto const& receiver : outputs->settings.front().remote.dest) {
        EXPECT_STREQ(receiver.address, "0.0.0.0");
    }
    EXPECT_THAT(syslog_ng_text(outputs->settings.front(), {}),
                testing::Not(testing::HasSubstr("destination(d_network")));
}

TEST_F(LogConfigServiceTest, OnlyStandbyEmptiesTheReceivers) {
    for (auto const mode : {ServiceMode::Init, ServiceMode::Master, ServiceMode::Standalone}) {
        spy.clear();
        EXPECT_THAT(make_service(mode)->update_syslog_configurator(), IsOk());
        EXPECT_FALSE(spy.was_called("init_SyslogNetworkDest"));
    }
}

TEST_F(LogConfigServiceTest, InStandbyAFailingDefaultIsReported) {
    spy.fail("init_SyslogNetworkDest", -1, EINVAL);
    EXPECT_THAT(make_service(ServiceMode::Standby)->update_syslog_configurator(),
                IsError(Error::ErrorCApi, ""));
    EXPECT_THAT(logger->texts(), ElementsAre("C API function returned -1, errno=22"));
    EXPECT_THAT(outputs->trace, IsEmpty());
}

TEST_F(LogConfigServiceTest, AFailedReadIsPassedOnByUpdateSyslogConfigurator) {
    spy.fail(accessor("syslog_console"), -1, EIO);
    EXPECT_THAT(make_service()->update_syslog_configurator(), IsError(Error::ErrorCApi, ""));
    EXPECT_THAT(logger->texts(),
                ElementsAre("C API function returned -1, errno=5", "Error: ErrorCApi", "Error: ErrorCApi"));
    EXPECT_THAT(outputs->trace, IsEmpty());
}

// --- remote terminals

TEST_F(LogConfigServiceTest, ATerminalEventIsRecordedAndApplied) {
    auto const service = make_service();
    EXPECT_THAT(service->update_pts({3, RemoteLoggerAction::Add}), IsOk());
    EXPECT_THAT(outputs->trace, ElementsAre("terminal", "syslog"));
    ASSERT_EQ(outputs->events.size(), 1U);
    EXPECT_EQ(outputs->events.front().pts_number, 3);
    EXPECT_EQ(outputs->events.front().action, RemoteLoggerAction::Add);
}

TEST_F(LogConfigServiceTest, RemoveForATerminalNeverAddedRunsTheWholeUpdate) {
    EXPECT_THAT(make_service()->update_pts({9, RemoteLoggerAction::Remove}), IsOk());
    EXPECT_THAT(outputs->trace, ElementsAre("terminal", "syslog"));
}

TEST_F(LogConfigServiceTest, WithoutTheDatabaseATerminalIsNotRecorded) {
    spy.fail(accessor("syslog_remote"), -1, EIO);
    EXPECT_THAT(make_service()->update_pts({3, RemoteLoggerAction::Add}), IsError(Error::ErrorCApi, ""));
    EXPECT_THAT(outputs->trace, IsEmpty());
    EXPECT_THAT(logger->texts(),
                ElementsAre("C API function returned -1, errno=5", "Error: ErrorCApi", "Error: ErrorCApi"));
}

TEST_F(LogConfigServiceTest, EachStepOfATerminalEventIsLoggedWhenItFails) {
    let_fail("terminal", Error::OutOfRange, "text");
    EXPECT_THAT(make_service()->update_pts({3, RemoteLoggerAction::Add}), IsError(Error::OutOfRange, ""));
    EXPECT_THAT(logger->texts(), ElementsAre("Error: OutOfRange. Message: text.", "Error: OutOfRange"));
    EXPECT_THAT(outputs->trace, ElementsAre("terminal"));

    outputs->answers.clear();
    let_fail("syslog", Error::CommonError, "Failed reload syslog");
    EXPECT_THAT(make_service()->update_pts({3, RemoteLoggerAction::Add}), IsError(Error::CommonError, ""));
    EXPECT_EQ(logger->texts().at(2), "Error: CommonError. Message: Failed reload syslog.");
    EXPECT_EQ(logger->texts().at(3), "Error: CommonError");
}

TEST_F(LogConfigServiceTest, ExceptionsInATerminalEventBecomeException) {
    let_throw("terminal");
    EXPECT_THAT(make_service()->update_pts({3, RemoteLoggerAction::Add}), IsError(Error::Exception, ""));
    EXPECT_THAT(logger->texts(), an_exception);
}

TEST_F(LogConfigServiceTest, ATerminalThatOpensDuringAChangeDoesNotBringOldSettingsBack) {
    auto const service = make_service();
    // The terminal's settings have been read, but are not applied yet, when others are committed and applied.
    outputs->answers["terminal"] = [&] {
        outputs->answers.clear();
        store({{"syslog.file.level", "debug"}});
        return change(*service, {52});
    };
    EXPECT_THAT(service->update_pts({3, RemoteLoggerAction::Add}), IsOk());
    EXPECT_THAT(outputs->trace, ElementsAre("terminal", "syslog", "syslog", "terminal", "syslog"));
    EXPECT_THAT(file_levels(), ElementsAre(5, 4, 5));
}

TEST_F(LogConfigServiceTest, ATerminalWhoseSettingsAreReadDuringAChangeDoesNotBringOldSettingsBack) {
    auto const service = make_service();
    // The terminal has read the receivers, but not the file's level, when a change of both is applied.
    spy.run_before(accessor("syslog_file"), [&] {
        store({{"syslog.remote.level", "debug"}, {"syslog.file.level", "debug"}});
        EXPECT_THAT(change(*service, {52, 54}), IsOk());
    });
    EXPECT_THAT(service->update_pts({3, RemoteLoggerAction::Add}), IsOk());
    EXPECT_THAT(outputs->trace, ElementsAre("syslog", "terminal", "syslog", "terminal", "syslog"));
    EXPECT_EQ(outputs->settings.back().remote.level, 5);
}

TEST_F(LogConfigServiceTest, ATerminalThatOpensWhileAChangeIsBeingAppliedDoesNotBringOldSettingsBack) {
    auto const service = make_service();
    std::latch applying{1};
    std::latch terminal_is_done{1};
    std::thread event_thread;
    // The change's settings are in force, but its application has not returned yet when the terminal's old
    // ones are applied.
    outputs->answers["terminal"] = [&]() -> Result<void> {
        outputs->answers.clear();
        outputs->answers["syslog"] = [&]() -> Result<void> {
            outputs->answers.clear();
            applying.count_down();
            terminal_is_done.wait();
            return core::success();
        };
        store({{"syslog.file.level", "debug"}});
        event_thread = std::thread{[&] { EXPECT_THAT(change(*service, {52}), IsOk()); }};
        applying.wait();
        return core::success();
    };
    EXPECT_THAT(service->update_pts({3, RemoteLoggerAction::Add}), IsOk());
    terminal_is_done.count_down();
    event_thread.join();
    EXPECT_THAT(file_levels(), ElementsAre(5, 4, 5));
}

TEST_F(LogConfigServiceTest, ATerminalsFailedReloadIsRepeatedWhereItLeftAnOldFile) {
    auto const service = make_service();
    outputs->answers["syslog"] = [&]() -> Result<void> {
        outputs->answers.clear();
        EXPECT_THAT(change(*service, {52}), IsOk()) << "its file is overwritten by the terminal's";
        return fail(Error::CommonError, "Failed reload syslog");
    };
    EXPECT_THAT(service->update_pts({3, RemoteLoggerAction::Add}), IsOk());
    EXPECT_THAT(outputs->trace, ElementsAre("terminal", "syslog", "syslog", "terminal", "syslog"));
    EXPECT_THAT(logger->texts(), IsEmpty());
}

TEST_F(LogConfigServiceTest, WithoutAChangeMeanwhileEachCallOfATerminalsEventIsMadeOnce) {
    auto const service = make_service();
    EXPECT_THAT(change(*service, {52}), IsOk());
    outputs->trace.clear();
    spy.clear();
    EXPECT_THAT(service->update_pts({3, RemoteLoggerAction::Add}), IsOk());
    EXPECT_THAT(outputs->trace, ElementsAre("terminal", "syslog"));
    EXPECT_THAT(spy.calls(), testing::Contains(accessor("syslog_remote")).Times(1));
}

// --- configuration changes

TEST_F(LogConfigServiceTest, AnEmptyListAndIgnoredFieldsReadNothing) {
    auto const service = make_service();
    EXPECT_THAT(change(*service, {}), IsOk());
    EXPECT_THAT(change(*service, {0, 51, 57, 70, 72, 74, 75, 80, 0xFFFFFFFF}), IsOk());
    EXPECT_THAT(spy.calls(), IsEmpty());
    EXPECT_THAT(outputs->trace, IsEmpty());
}

TEST_F(LogConfigServiceTest, EachSyslogFieldUpdatesSyslog) {
    for (std::uint32_t const field : {52, 53, 54, 56}) {
        outputs->trace.clear();
        EXPECT_THAT(change(*make_service(), {field}), IsOk());
        EXPECT_THAT(outputs->trace, ElementsAre("syslog")) << field;
    }
}

TEST_F(LogConfigServiceTest, SeveralSyslogFieldsUpdateSyslogOnce) {
    EXPECT_THAT(change(*make_service(), {52, 56, 53, 54, 52}), IsOk());
    EXPECT_THAT(outputs->trace, ElementsAre("syslog"));
}

TEST_F(LogConfigServiceTest, TheOutputsFollowInAFixedOrder) {
    EXPECT_THAT(change(*make_service(), {58, 55, 52}), IsOk());
    EXPECT_THAT(outputs->trace, ElementsAre("syslog", "kernel 2", "file 1", "file 2"));
}

TEST_F(LogConfigServiceTest, EveryModuleFieldQueuesItsRecordUnderItsModule) {
    struct Row {
        std::uint32_t field;
        std::uint32_t module;
        char const* reader;
        std::type_info const& record;
    };
    Row const rows[] = {
        {58, 0, "alarmmgr", typeid(ModuleAlarmMgr)},
        {59, 1, "dna", typeid(ModuleDna)},
        {60, 2, "fsm_pon", typeid(ModuleFsmPon)},
        {61, 3, "igmp", typeid(ModuleIgmp)},
        {62, 4, "dhcpra", typeid(ModuleDhcpRa)},
        {63, 19, "arp", typeid(ModuleArp)},
        {64, 5, "ipsg", typeid(ModuleIpsg)},
        {65, 6, "pppoe_ia", typeid(ModulePppoeIa)},
        {66, 7, "lldp", typeid(ModuleLldp)},
        {67, 17, "lacp", typeid(ModuleLacp)},
        {68, 8, "l3_agent", typeid(ModuleL3Agent)},
        {69, 9, "snmp", typeid(ModuleSnmp)},
        {71, 9, "sessionmgr", typeid(ModuleSessionMgr)},
        {73, 13, "cli", typeid(ModuleCli)},
        {76, 43, "netserve", typeid(ModuleNetserve)},
        {77, 39, "acs_custom", typeid(ModuleAcsCustom)},
        {78, 16, "switch", typeid(ModuleSwitch)},
        {79, 18, "datapath", typeid(ModuleDatapath)},
    };
    auto const service = make_service();
    for (auto const& row : rows) {
        spy.clear();
        EXPECT_THAT(change(*service, {row.field}), IsOk());
        EXPECT_THAT(spy.calls(), ElementsAre(accessor("module_") + row.reader)) << row.field;
        auto const& queued = outputs->changes.back();
        ASSERT_EQ(queued.size(), 1U) << row.field;
        EXPECT_EQ(queued.front().first, Modules_names{row.module}) << row.field;
        EXPECT_EQ(queued.front().second.type(), row.record) << row.field;
    }
}

TEST_F(LogConfigServiceTest, AQueuedRecordHoldsTheStoredLevels) {
    store({{"module.ipsg.SELF", "critical"},
           {"module.ipsg.BIND", "debug"},
           {"module.fsm_pon.ont.16.256", "info"}});
    EXPECT_THAT(change(*make_service(), {64, 60}), IsOk());
    auto const& queued = outputs->changes.front();
    auto const ipsg = std::any_cast<ModuleIpsg>(queued.at(0).second);
    EXPECT_THAT(ipsg.level, ElementsAre(0, 5, 3));
    auto const fsm = std::any_cast<ModuleFsmPon>(queued.at(1).second);
    EXPECT_EQ(fsm.ont[15][255], 4);
    EXPECT_EQ(fsm.ont[15][254], 3);
}

TEST_F(LogConfigServiceTest, AFieldListedTwiceIsReadAndQueuedTwice) {
    EXPECT_THAT(change(*make_service(), {58, 58}), IsOk());
    EXPECT_EQ(spy.calls().size(), 2U);
    EXPECT_EQ(outputs->changes.front().size(), 2U);
}

TEST_F(LogConfigServiceTest, EveryFileSeesTheWholeListOnce) {
    EXPECT_THAT(change(*make_service(), {58, 69, 76}), IsOk());
    EXPECT_THAT(outputs->trace, ElementsAre("file 1", "file 2"));
    EXPECT_EQ(outputs->changes.front().size(), 3U);
}

TEST_F(LogConfigServiceTest, WithoutFilesAModuleChangeSucceeds) {
    EXPECT_THAT(change(*make_service(ServiceMode{1}, 0), {58}), IsOk());
}

TEST_F(LogConfigServiceTest, AReaderThatFailsDiscardsTheWholeList) {
    spy.fail(accessor("module_netserve"), -1, EINVAL);
    EXPECT_THAT(change(*make_service(), {52, 55, 58, 76}), IsError(Error::ErrorCApi, ""));
    EXPECT_EQ(errno, 0);
    EXPECT_THAT(outputs->trace, IsEmpty());
    EXPECT_THAT(logger->texts(), ElementsAre("C API function returned -1, errno=22"));
}

TEST_F(LogConfigServiceTest, AFailingKernelUpdateKeepsTheFilesUntouched) {
    let_fail("kernel 2", Error::CommonError, "text");
    EXPECT_THAT(change(*make_service(), {55, 58}), IsError(Error::CommonError, ""));
    EXPECT_THAT(outputs->trace, ElementsAre("kernel 2"));
    EXPECT_THAT(logger->texts(), ElementsAre("Error: CommonError. Message: text.", "Error: CommonError",
                                             "Error: CommonError"));
}

TEST_F(LogConfigServiceTest, AFailingSyslogUpdateKeepsKernelAndFilesUntouched) {
    let_fail("syslog");
    EXPECT_THAT(change(*make_service(), {52, 55, 58}), IsError(Error::CommonError, ""));
    EXPECT_THAT(outputs->trace, ElementsAre("syslog"));
}

TEST_F(LogConfigServiceTest, AnExceptionBeforeAnOutputIsReachedKeepsTheLaterOnesUntouched) {
    spy.make_throw(accessor("syslog_kernel"), "broken");
    spy.make_throw("init_SyslogNetworkDest", "broken");
    EXPECT_THAT(change(*make_service(), {55, 58}), IsError(Error::Exception, ""));
    EXPECT_THAT(logger->texts(), an_exception);
    logger = std::make_shared<FakeLogger>();
    EXPECT_THAT(change(*make_service(ServiceMode::Standby), {52, 55, 58}), IsError(Error::Exception, ""));
    EXPECT_THAT(logger->texts(), an_exception);
    EXPECT_THAT(outputs->trace, IsEmpty());
}

TEST_F(LogConfigServiceTest, AFailingFileKeepsTheLaterFilesUntouched) {
    let_fail("file 1", Error::CommonError, "Failed update_config for module 9");
    EXPECT_THAT(change(*make_service(), {71}), IsError(Error::CommonError, ""));
    EXPECT_THAT(outputs->trace, ElementsAre("file 1"));
    EXPECT_THAT(
        logger->texts(),
        ElementsAre("Error: CommonError. Message: Failed update_config for module 9.", "Error: CommonError"));
}

TEST_F(LogConfigServiceTest, AFileThatThrowsIsReportedAsException) {
    let_throw("file 1");
    EXPECT_THAT(change(*make_service(), {58}), IsError(Error::Exception, ""));
    EXPECT_THAT(logger->texts(), an_exception);
}

} // namespace
} // namespace xpon::log_config
