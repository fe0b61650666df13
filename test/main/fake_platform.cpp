#include "main/fake_platform.hpp"

#include <csignal>

#include <systemd/sd-daemon.h>

#include "xpon/cfgdb/cfgdb_wrapper.hpp"
#include "xpon/config_writer/config_writer.hpp"
#include "xpon/ipc/zmq_ipc.hpp"
#include "xpon/log_config/kernel/kernel_configurator.hpp"
#include "xpon/log_config/rsh/remote_shell_logger.hpp"
#include "xpon/log_config/service/log_config_service.hpp"
#include "xpon/log_config/syslog_ng/syslog_configurator.hpp"
#include "xpon/log_config/zlog_files/generate_zlog_config_files.hpp"
#include "xpon/logger/logger.hpp"
#include "xpon/service/service_launcher.hpp"
#include "xpon/system_wrapper/system_wrapper.hpp"

namespace xpon {

namespace test {

FakePlatform& FakePlatform::instance() {
    static FakePlatform platform;
    return platform;
}

void FakePlatform::created(std::string const& name) {
    if (auto const hook = on_create.find(name.substr(0, name.find('('))); hook != on_create.end()) {
        hook->second();
    }
    trace.push_back("create " + name);
}

void FakePlatform::destroyed(std::string const& name) {
    trace.push_back("destroy " + name);
    if (auto const hook = on.find("destroy " + name); hook != on.end()) {
        hook->second();
    }
}

std::vector<std::string> FakePlatform::traced(std::string const& beginning) const {
    std::vector<std::string> lines;
    for (auto const& line : trace) {
        if (line.starts_with(beginning)) {
            lines.push_back(line.substr(beginning.size()));
        }
    }
    return lines;
}

} // namespace test

namespace {

test::FakePlatform& platform() {
    return test::FakePlatform::instance();
}

} // namespace

namespace logger {

struct Logger::Category {};
struct Logger::LoggerContext::State {};

core::Result<std::unique_ptr<Logger::LoggerContext>>
Logger::create_context(std::filesystem::path const& config_file, std::string const& name,
                       std::uint16_t number) {
    platform().created("context(" + config_file.string() + ", " + name + ", " + std::to_string(number) + ")");
    OUTCOME_TRY(platform().context_result());
    return std::unique_ptr<LoggerContext>{new LoggerContext{nullptr}};
}

Logger::LoggerContext::LoggerContext(std::unique_ptr<State>&& context_state)
  : state{std::move(context_state)} {}

Logger::LoggerContext::~LoggerContext() {
    platform().destroyed("context");
}

Logger::Logger(std::string const& name) {
    platform().created("logger(" + name + ")");
}

Logger::~Logger() {
    platform().destroyed("logger");
}

bool Logger::is_enabled(core::LogLevel /*level*/) const {
    return false;
}

void Logger::log(core::LogLevel /*level*/, std::string_view /*text*/, std::source_location const& /*where*/) {
}

} // namespace logger

namespace ipc {

namespace {

class FakeEndpoint : public IIpc {
  public:
    ~FakeEndpoint() override { platform().destroyed("ipc"); }
    core::Result<void> send(Header const& /*header*/, std::span<std::byte const> /*payload*/) override {
        return core::success();
    }
    core::Result<std::optional<Message>> receive() override { return std::optional<Message>{}; }
    int receive_fd() const override { return -1; }
    Address address() const override { return {}; }
};

} // namespace

std::shared_ptr<IIpc> make_zmq_ipc(Address address, std::string const& name,
                                   std::filesystem::path const& /*folder*/) {
    platform().created("ipc(" + std::to_string(address.value) + ", " + name + ")");
    return std::make_shared<FakeEndpoint>();
}

} // namespace ipc

namespace cfgdb {

CfgDbWrapper::CfgDbWrapper(std::string const& name, std::filesystem::path const& /*folder*/) {
    platform().created("cfgdb(" + name + ")");
}

CfgDbWrapper::~CfgDbWrapper() {
    platform().destroyed("cfgdb");
}

void const* CfgDbWrapper::db() const {
    return nullptr;
}

} // namespace cfgdb

namespace system_wrapper {

SystemWrapper::SystemWrapper(std::chrono::milliseconds time_limit)
  : limit{time_limit} {}

core::Result<int> SystemWrapper::execute(std::string const& /*command*/) {
    return 0;
}

} // namespace system_wrapper

namespace config_writer {

ConfigWriter::ConfigWriter(std::filesystem::path target_file)
  : target{std::move(target_file)} {
    platform().created("writer(" + target.string() + ")");
}

core::Result<void> ConfigWriter::write(std::string const& /*text*/) {
    return core::success();
}

} // namespace config_writer

namespace service {

core::Result<void> ServiceBase::run(ServiceCtx const& /*ctx*/) {
    return core::success();
}
core::Result<void> ServiceBase::stop(ServiceCtx const& /*ctx*/) {
    return core::success();
}
bool ServiceBase::is_required_master_change_event() {
    return false;
}

struct ServiceLauncher::Impl {
    std::unique_ptr<IService> service;
};

ServiceLauncher::ServiceLauncher(std::unique_ptr<IService>&& service,
                                 std::shared_ptr<core::ILogger> const& /*logger*/,
                                 std::shared_ptr<ipc::IIpc> const& /*ipc*/, bool follow_config) {
    platform().created(follow_config ? "launcher(true)" : "launcher(false)");
    impl = std::make_unique<Impl>(Impl{std::move(service)});
}

ServiceLauncher::~ServiceLauncher() {
    platform().destroyed("launcher");
}

core::Result<void> ServiceLauncher::run() {
    auto const cycle = platform().cycles++;
    if (cycle < platform().runs.size()) {
        return platform().runs[cycle]();
    }
    std::raise(SIGTERM);
    return core::success();
}

core::Result<void> ServiceLauncher::stop() {
    platform().trace.emplace_back("stop");
    return core::success();
}

} // namespace service

namespace log_config {

namespace {

/// Tells of its end, as the last of its kind to be released in a cycle.
class FakeLogConfigFile : public ILogConfigFile {
  public:
    ~FakeLogConfigFile() override { platform().destroyed("zlog files"); }
    Result<void> apply_new_config(ModuleChanges const& /*changes*/) override { return core::success(); }
};

} // namespace

KernelConfigurator::KernelConfigurator(std::shared_ptr<system_wrapper::ISystemWrapper> const& wrapper)
  : system_wrapper{wrapper} {
    platform().created("kernel");
}
Result<void> KernelConfigurator::apply_new_config(SyslogKernelDest const& /*dest*/) {
    return core::success();
}

SyslogConfigurator::SyslogConfigurator(std::shared_ptr<system_wrapper::ISystemWrapper> const& wrapper,
                                       std::unique_ptr<config_writer::IConfigWriter>&& config_writer)
  : system_wrapper{wrapper}
  , writer{std::move(config_writer)} {
    platform().created("syslog");
}
Result<void> SyslogConfigurator::apply_new_config(SyslogSettings const& /*settings*/) {
    return core::success();
}
Result<void> SyslogConfigurator::update_remote_logging(RemoteLoggerEvent const& /*event*/) {
    return core::success();
}

PtsPoller::PtsPoller(std::filesystem::path const& /*path*/,
                     std::shared_ptr<system_wrapper::ISystemWrapper> const& /*system_wrapper*/,
                     std::shared_ptr<core::ILogger> const& /*logger*/, UpdateConfigCb&& /*callback*/) {}
PtsPoller::~PtsPoller() = default;

RemoteShellLogger::RemoteShellLogger(std::filesystem::path const& dir,
                                     std::shared_ptr<system_wrapper::ISystemWrapper> const& wrapper,
                                     std::shared_ptr<core::ILogger> const& log, UpdateConfigCb&& callback)
  : poller{dir, wrapper, log, UpdateConfigCb{}} {
    platform().created("rsh(" + dir.string() + (callback ? ", callback)" : ")"));
}
RemoteShellLogger::~RemoteShellLogger() {
    platform().destroyed("rsh");
}
Result<void> RemoteShellLogger::set_update_config_cb(UpdateConfigCb&& /*callback*/) {
    return core::success();
}

Result<std::vector<std::unique_ptr<ILogConfigFile>>>
generate_zlog_config_files(std::shared_ptr<cfgdb::CfgDbWrapper> const& /*cfgdb*/,
                           std::shared_ptr<ipc::IIpc> const& /*ipc*/,
                           std::shared_ptr<core::ILogger> const& /*logger*/) {
    platform().created("zlog files");
    OUTCOME_TRY(platform().zlog_files_result());
    std::vector<std::unique_ptr<ILogConfigFile>> files;
    files.push_back(std::make_unique<FakeLogConfigFile>());
    return files;
}

LogConfigService::LogConfigService(std::shared_ptr<core::ILogger> const& service_logger,
                                   std::shared_ptr<cfgdb::CfgDbWrapper> const& database,
                                   std::unique_ptr<IKernelConfigurator>&& kernel,
                                   std::unique_ptr<ISyslogConfigurator>&& syslog,
                                   std::unique_ptr<IRemoteShellLogger>&& rsh,
                                   std::vector<std::unique_ptr<ILogConfigFile>>&& files,
                                   service::ServiceMode service_mode)
  // A constructor that throws does so before it has taken anything.
  : logger{(platform().created("service(" + std::to_string(static_cast<int>(service_mode)) + ")"),
            service_logger)}
  , cfgdb{database}
  , kernel_configurator{std::move(kernel)}
  , syslog_configurator{std::move(syslog)}
  , rsh_logger{std::move(rsh)}
  , log_files{std::move(files)}
  , mode{service_mode} {}
Result<void> LogConfigService::run(service::ServiceCtx const& /*ctx*/) {
    return core::success();
}
Result<void> LogConfigService::master_change(service::ServiceCtx const& /*ctx*/) {
    return core::success();
}
Result<void> LogConfigService::config_change(service::ServiceCtx const& /*ctx*/,
                                             std::vector<Config_change> const& /*changes*/) {
    return core::success();
}
Result<void> LogConfigService::sync(service::ServiceCtx const& /*ctx*/) {
    return core::success();
}

} // namespace log_config

} // namespace xpon

// NOLINTBEGIN(bugprone-reserved-identifier): these are the names that the linker's --wrap gives
extern "C" int __real_sd_notify(int unset_environment, char const* state);
extern "C" int __wrap_sd_notify(int unset_environment, char const* state);

int __wrap_sd_notify(int unset_environment, char const* state) {
    int const result = __real_sd_notify(unset_environment, state);
    auto const line = std::string{"notify "} + state;
    xpon::platform().trace.push_back(line);
    if (auto const hook = xpon::platform().on.find(line); hook != xpon::platform().on.end()) {
        hook->second();
    }
    return result;
}
// NOLINTEND(bugprone-reserved-identifier)
