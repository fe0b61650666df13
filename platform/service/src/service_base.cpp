#include "xpon/service/service_base.hpp"

namespace xpon::service {

core::Result<void> ServiceBase::run(ServiceCtx const& ctx) {
    std::unique_lock lock{mutex};
    if (!stopped && ctx.serving) {
        // Without the lock: whoever is told may stop the service at once.
        lock.unlock();
        ctx.serving();
        lock.lock();
    }
    stop_requested.wait(lock, [this] { return stopped; });
    return core::success();
}

core::Result<void> ServiceBase::stop(ServiceCtx const& /*ctx*/) {
    std::lock_guard const lock{mutex};
    stopped = true;
    stop_requested.notify_all();
    return core::success();
}

bool ServiceBase::is_required_master_change_event() {
    return false;
}

} // namespace xpon::service
