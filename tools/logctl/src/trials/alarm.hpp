#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "commands/command.hpp"
#include "core/unique_fd.hpp"
#include "xpon/cfgdb/trial.hpp"

namespace xpon::logctl {

/// What ends a trial when its time is over and this program may be long gone: a timer of the service manager,
/// else a process of its own session in the background. It is set before the commit, so that no death in
/// between leaves a trial that nobody ends.
class Alarm {
  public:
    explicit Alarm(Context const& context);

    /// For a trial that ends at `end`, so many seconds from now.
    core::Result<void> set(cfgdb::BootInstant const& end, std::int64_t seconds);

    /// The timer's name; empty for a process.
    std::string const& timer() const { return unit; }

    /// There is a trial. Call it before anything that can wait, such as output to a terminal.
    void committed();

    /// There is none. The process sees that for itself.
    void cancel();

  private:
    bool start_timer(std::string const& name, std::int64_t seconds) const;
    core::Result<void> start_guard(cfgdb::BootInstant const& end);

    std::vector<std::string> command;
    std::string unit;
    core::UniqueFd
        undecided; // to the process: a byte once there is a trial or none; its end alone is a death
};

/// Stops the timer that was to end a trial. Where it stays, it finds nothing to do.
void stop_timer(std::string const& timer);

} // namespace xpon::logctl
