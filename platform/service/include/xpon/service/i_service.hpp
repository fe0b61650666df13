#pragma once

#include <functional>
#include <vector>

#include "core/result.hpp"
#include "xpon/cfgdb/config_change.hpp"

namespace xpon::service {

/// What the launcher hands to a service with every event.
struct ServiceCtx {
    /// The serving loop has begun: from now on events may be delivered. Called by `ServiceBase::run`.
    std::function<void()> serving;
};

/// What the launcher drives. `run` is called on the launcher's thread, everything else on its event thread,
/// one call at a time.
class IService {
  public:
    /// Serves until stopped.
    virtual core::Result<void> run(ServiceCtx const& ctx) = 0;
    /// Ends `run`; called before, it makes `run` return as soon as it would serve.
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
