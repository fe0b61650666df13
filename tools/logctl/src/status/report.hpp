#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "board/processes.hpp"
#include "board/syslog_ng.hpp"
#include "board/terminals.hpp"
#include "commands/command.hpp"
#include "output.hpp"
#include "wanted.hpp"
#include "xpon/cfgdb/trial.hpp"
#include "xpon/log_config/outputs/outputs.hpp"

namespace xpon::logctl {

inline constexpr std::string_view in_order = "ok";
inline constexpr std::string_view unknown = "unknown";
inline constexpr std::string_view not_arriving = "not arriving";
inline constexpr std::string_view restart_needed = "restart needed";

/// What is behind a state that is not "ok", and the command that changes it. Either may be empty.
struct Note {
    std::string reason;
    std::string remedy;

    bool operator==(Note const&) const = default;
};

/// The daemon, the broker or syslog-ng.
struct Part {
    std::string_view name;
    std::string_view unit;
    std::optional<Process> process;
    std::string state; ///< "up", "down", "frozen" or "silent"
    std::vector<Note> notes;

    bool works() const { return state == "up"; }
};

/// What the database asks for, what was written, what runs. Each is "ok" or says in a word what it is
/// instead.
struct OutputStatus {
    log_config::Output const* output;
    std::string wanted{in_order};
    std::string written{in_order};
    std::string running{in_order};
    std::vector<Note> notes{}; // NOLINT(readability-redundant-member-init): lets callers omit it
    bool hidden = false;       ///< the caller may not see what runs

    bool in_step() const {
        return wanted == in_order && written == in_order && (running == in_order || running == unknown);
    }
};

/// Where syslog-ng sends messages.
struct DestinationStatus {
    std::string name;
    std::string id; ///< of its counters
    std::string target;
    std::string state; ///< "ok", "sent" (nobody confirms UDP), "not arriving" or "unknown"
    Counters counters;
    std::vector<Note> notes{}; // NOLINT(readability-redundant-member-init): lets callers omit it
};

struct Report {
    std::vector<Part> parts;    ///< daemon, broker, syslog-ng; of some outputs, those that they depend on
    std::vector<Note> database; ///< why the settings cannot be read; empty if they can
    std::vector<cfgdb::Trial> trials;
    std::vector<Terminal> terminals;
    std::vector<OutputStatus> outputs;
    std::vector<DestinationStatus> destinations;

    /// Whether all is well, as far as the caller may see.
    bool in_step() const {
        return std::ranges::all_of(parts, &Part::works) && database.empty() &&
               std::ranges::all_of(outputs, &OutputStatus::in_step) &&
               std::ranges::count(destinations, not_arriving, &DestinationStatus::state) == 0;
    }
    std::ptrdiff_t count(TerminalState state) const {
        return std::ranges::count(terminals, state, &Terminal::state);
    }
};

Part find_daemon();
Part find_broker();

/// Looks at everything. Takes 3 s at most, also if syslog-ng or the broker does not answer.
Report look(Context const& context);

/// Looks at everything, and again for a second while outputs are not in step: it takes less to write a file and
/// to have it loaded. Takes 4 s at most.
Report look_until_settled(Context const& context);

/// Looks at some outputs alone, and not at the destinations.
Report look(Context const& context, Outputs const& outputs);

/// "reason; run: remedy", all of them.
std::string text_of(std::vector<Note> const& notes);

std::string to_text(Report const& report, Screen const& screen);
std::string to_json(Report const& report);

} // namespace xpon::logctl
