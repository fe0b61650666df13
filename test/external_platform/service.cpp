#include "xpon/service/service_base.hpp"
#include "xpon/service/service_launcher.hpp"
#include "xpon/service/service_mode.hpp"

namespace xpon::service {

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
                                 std::shared_ptr<ipc::IIpc> const& /*ipc*/, bool /*follow_config*/)
  : impl{std::make_unique<Impl>(std::move(service))} {}
ServiceLauncher::~ServiceLauncher() = default;

core::Result<void> ServiceLauncher::run() {
    return impl->service->run({});
}

core::Result<void> ServiceLauncher::stop() {
    return impl->service->stop({});
}

unsigned char operator|(ServiceMode left, ServiceMode right) {
    return static_cast<unsigned char>(left) | right;
}

unsigned char operator|(unsigned char mask, ServiceMode mode) {
    return static_cast<unsigned char>(mask | static_cast<unsigned char>(mode));
}

std::string to_string(ServiceMode const& /*mode*/) {
    return "";
}

core::Result<void> is_allowed_mode(ServiceMode const& /*mode*/, unsigned char const& /*mask*/) {
    return core::success();
}

} // namespace xpon::service
