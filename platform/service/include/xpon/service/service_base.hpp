#pragma once

#include <condition_variable>
#include <mutex>

#include "xpon/service/i_service.hpp"

namespace xpon::service {

/// The serving loop that services share. `run` reports through the context that serving has started, then
/// waits for `stop`.
class ServiceBase : public IService {
  public:
    core::Result<void> run(ServiceCtx const& ctx) override;
    core::Result<void> stop(ServiceCtx const& ctx) override;
    bool is_required_master_change_event() override;

  private:
    std::mutex mutex;
    std::condition_variable stop_requested;
    bool stopped = false; // guarded by mutex
};

} // namespace xpon::service
