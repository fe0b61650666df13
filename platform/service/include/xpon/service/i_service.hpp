#pragma once

#include <functional>
#include <vector>

#include "core/result.hpp"
#include "xpon/cfgdb/config_change.hpp"

namespace xpon::service {

/// What the launcher passes to a service with every event.
struct ServiceCtx {
    /// Reports that the serving loop has started, so that events may be delivered. Called by
    /// `ServiceBase::run`.
    std::function<void()> serving;
};

/// A service that the launcher runs. `run` is called on the launcher's thread, everything else on its event
/// thread, one call at a time.
class IService {
  public:
    /// Serves until stopped.
    virtual core::Result<void> run(ServiceCtx const& ctx) = 0;
    /// Ends `run`. If it is called before `run`, then `run` returns as soon as it would serve.
    virtual core::Result<void> stop(ServiceCtx const& ctx) = 0;
    /// The redundancy role may have changed.
    virtual core::Result<void> master_change(ServiceCtx const& ctx) = 0;
    /// These fields of the configuration changed. After an error each of them is delivered again.
    virtual core::Result<void> config_change(ServiceCtx const& ctx,
                                             std::vector<Config_change> const& changes) = 0;
    /// The configuration should be checked against the other controller.
    virtual core::Result<void> sync(ServiceCtx const& ctx) = 0;
    /// Whether the launcher should deliver a master change as soon as the service serves.
    virtual bool is_required_master_change_event() = 0;

    virtual ~IService() = default;
};

} // namespace xpon::service
