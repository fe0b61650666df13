#include <fmt/format.h>

#include "output.hpp"
#include "status/report.hpp"
#include "table.hpp"
#include "trials/duration.hpp"
#include "wrapped.hpp"

namespace xpon::logctl {

namespace {

Cell state_cell(std::string_view state) {
    bool const good = state == in_order || state == "sent";
    return {state, good ? colour::green : state == unknown ? std::string_view{} : colour::red};
}

std::string state_of(Part const& part) {
    if (auto const& process = part.process; process && part.works()) {
        return fmt::format("up since {}, process {}", utc(process->since), process->pid);
    }
    return fmt::format("{}: {}", part.state, text_of(part.notes));
}

std::string state_of(cfgdb::Trial const& trial) {
    auto const left = duration_text(trial.terms.end.left());
    return trial.terms.temporary
               ? fmt::format("transaction {} by {}, put back in {}", trial.number, trial.author, left)
               : fmt::format(
                     "transaction {0} by {1}, undone in {2} unless confirmed; run: logctl confirm {0}",
                     trial.number, trial.author, left);
}

void add_board(AddLine const& add, Report const& report) {
    for (auto const& part : report.parts) {
        add({part.name, {state_of(part), part.works() ? std::string_view{} : colour::red}});
    }
    add({"database",
         report.database.empty() ? Cell{"readable"} : Cell{text_of(report.database), colour::red}});
    auto const stalled = report.count(TerminalState::Stalled);
    add({"terminals",
         {fmt::format("{} open, {} receiving, {} stalled", report.terminals.size(),
                      report.count(TerminalState::Receiving), stalled),
          stalled > 0 ? colour::red : std::string_view{}}});
    if (report.trials.empty()) {
        add({"trials", "none"});
    }
    for (std::string_view name = "trials"; auto const& trial : report.trials) {
        add({name, state_of(trial)});
        name = "";
    }
}

void add_outputs(AddLine const& add, std::vector<OutputStatus> const& outputs) {
    add({"OUTPUT", "WANTED", "WRITTEN", "RUNNING", "REASON"});
    for (auto const& status : outputs) {
        add({status.output->name, state_cell(status.wanted), state_cell(status.written),
             state_cell(status.running), text_of(status.notes)});
    }
}

void add_destinations(AddLine const& add, std::vector<DestinationStatus> const& destinations) {
    auto const number = [](std::optional<std::uint64_t> const& counter) {
        return counter ? std::to_string(*counter) : "-";
    };
    add({"DESTINATION", "TO", "ARRIVING", "MESSAGES", "WRITTEN", "QUEUED", "DROPPED", "REASON"});
    for (auto const& [name, id, target, state, counters, notes] : destinations) {
        add({name, target, state_cell(state), number(counters.processed), number(counters.written),
             number(counters.queued), number(counters.dropped), text_of(notes)});
    }
}

std::string verdict(Report const& report) {
    if (report.in_step()) {
        return fmt::format("in step: all {} outputs\n", report.outputs.size());
    }
    auto const behind =
        report.outputs.size() -
        static_cast<std::size_t>(std::ranges::count_if(report.outputs, &OutputStatus::in_step));
    auto text = fmt::format("not in step: {} of {} outputs", behind, report.outputs.size());
    for (auto const& part : report.parts) {
        text += part.works() ? "" : fmt::format("; {} {}", part.name, part.state);
    }
    auto const lost = std::ranges::count(report.destinations, not_arriving, &DestinationStatus::state);
    text += lost == 0 ? ""
                      : fmt::format("; {} of {} destinations not arriving", lost, report.destinations.size());
    return text + (report.count(TerminalState::Stalled) > 0 ? "; a terminal is stalled\n" : "\n");
}

} // namespace

std::string text_of(std::vector<Note> const& notes) {
    std::string text;
    for (auto const& [reason, remedy] : notes) {
        text += (text.empty() ? "" : "; ") + reason + (remedy.empty() ? "" : "; run: " + remedy);
    }
    return text;
}

std::string to_text(Report const& report, Screen const& screen) {
    auto const table = [&](auto const& add_lines) {
        return aligned(add_lines, screen, LastColumn::WrappedUnderHeading) + "\n";
    };
    auto text = aligned([&](auto const& add) { add_board(add, report); }, screen, LastColumn::Wrapped) +
                "\n" + table([&](auto const& add) { add_outputs(add, report.outputs); });
    if (!report.destinations.empty()) {
        text += table([&](auto const& add) { add_destinations(add, report.destinations); });
    }
    return text + wrapped(verdict(report), 0, screen.width);
}

} // namespace xpon::logctl
