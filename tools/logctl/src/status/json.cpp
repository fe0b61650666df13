#include "status/json.hpp"

#include <fmt/format.h>

#include "output.hpp"

namespace xpon::logctl {

namespace {

using nlohmann::ordered_json;

ordered_json object_of(Part const& part) {
    ordered_json const pid = part.process ? ordered_json(part.process->pid) : ordered_json(nullptr);
    ordered_json const since = part.process ? ordered_json(utc(part.process->since)) : ordered_json(nullptr);
    return with_notes({{"up", part.works()}, {"state", part.state}, {"pid", pid}, {"since", since}},
                      part.notes);
}

ordered_json object_of(Terminal const& terminal) {
    constexpr std::string_view names[] = {"open", "receiving", "stalled"};
    return {{"terminal", fmt::format("/dev/pts/{}", terminal.number)},
            {"state", names[static_cast<std::size_t>(terminal.state)]},
            {"messages", terminal.messages}};
}

ordered_json object_of(OutputStatus const& status) {
    return with_notes({{"output", status.output->name},
                       {"path", status.output->path},
                       {"wanted", status.wanted},
                       {"written", status.written},
                       {"running", status.running},
                       {"in_step", status.in_step()}},
                      status.notes);
}

ordered_json object_of(DestinationStatus const& status) {
    auto const number = [](std::optional<std::uint64_t> const& counter) {
        return counter ? ordered_json(*counter) : ordered_json(nullptr);
    };
    return with_notes({{"destination", status.name},
                       {"to", status.target},
                       {"arriving", status.state},
                       {"messages", number(status.counters.processed)},
                       {"written", number(status.counters.written)},
                       {"queued", number(status.counters.queued)},
                       {"dropped", number(status.counters.dropped)}},
                      status.notes);
}

ordered_json object_of(cfgdb::Trial const& trial) {
    return {{"number", trial.number},
            {"author", trial.author},
            {"seconds_left", trial.terms.end.left()},
            {"temporary", trial.terms.temporary}};
}

template <class Range>
ordered_json array_of(Range const& range) {
    auto all = ordered_json::array();
    for (auto const& one : range) {
        all.push_back(object_of(one));
    }
    return all;
}

} // namespace

ordered_json with_notes(ordered_json object, std::vector<Note> const& notes) {
    std::string reason;
    std::string remedy;
    for (auto const& note : notes) {
        reason += (reason.empty() ? "" : "; ") + note.reason;
        remedy += (remedy.empty() || note.remedy.empty() ? "" : "; ") + note.remedy;
    }
    object["reason"] = reason;
    object["remedy"] = remedy;
    return object;
}

std::string to_json(Report const& report) {
    ordered_json const whole{{"in_step", report.in_step()},
                             {"daemon", object_of(report.parts[0])},
                             {"broker", object_of(report.parts[1])},
                             {"syslog_ng", object_of(report.parts[2])},
                             {"database_problem", report.database.empty()
                                                      ? ordered_json(nullptr)
                                                      : ordered_json(report.database.front().reason)},
                             {"trials", array_of(report.trials)},
                             {"terminals", array_of(report.terminals)},
                             {"outputs", array_of(report.outputs)},
                             {"destinations", array_of(report.destinations)}};
    return whole.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

} // namespace xpon::logctl
