#include "xpon/service/service_launcher.hpp"

#include "core/log.hpp"
#include "service_run.hpp"

namespace xpon::service {

namespace {

std::unique_ptr<cfgdb::ChangeFeed> take_feed(core::ILogger& logger) {
    auto feed = cfgdb::ChangeFeed::take();
    if (!feed) {
        core::log(logger, core::log_failure,
                  "Configuration changes are not followed: no database has been opened for it");
    }
    return feed;
}

} // namespace

struct ServiceLauncher::Impl : ServiceRun {
    using ServiceRun::ServiceRun;
};

ServiceLauncher::ServiceLauncher(std::unique_ptr<IService>&& service,
                                 std::shared_ptr<core::ILogger> const& logger,
                                 std::shared_ptr<ipc::IIpc> const& ipc, bool follow_config)
  : impl{std::make_unique<Impl>(std::move(service), logger, ipc,
                                follow_config ? take_feed(*logger) : nullptr)} {}

ServiceLauncher::~ServiceLauncher() = default;

core::Result<void> ServiceLauncher::run() {
    return impl->run();
}

core::Result<void> ServiceLauncher::stop() {
    return impl->stop();
}

} // namespace xpon::service
