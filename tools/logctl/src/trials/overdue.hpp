#pragma once

#include <vector>

#include "commands/command.hpp"
#include "xpon/cfgdb/trial.hpp"

namespace xpon::logctl {

/// Ends the trials whose time is over, each by itself: at the end of the time, after a reboot, and wherever
/// what should have ended one is gone. The system's log says what was undone. Fails if one could not be
/// ended; a database that is not there has none.
core::Result<void> end_overdue_trials(Context const& context);

/// The end of one trial, in lines for the operator.
std::string text_of(cfgdb::EndedTrial const& ended);

} // namespace xpon::logctl
