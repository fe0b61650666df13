#include "probe/probe.hpp"

#include <memory>

#include <fmt/format.h>

#include "output.hpp"
#include "status/json.hpp"
#include "table.hpp"
#include "wrapped.hpp"

namespace xpon::logctl {

namespace {

using nlohmann::ordered_json;

Cell cell_of(Arrival arrival) {
    if (arrival == Arrival::Filtered) {
        return "-";
    }
    return {name_of(arrival), is_right(arrival)             ? colour::green
                              : arrival == Arrival::Unknown ? colour::yellow
                                                            : colour::red};
}

std::string to_text(ProbeResult const& result, Screen const& screen) {
    auto const table = aligned(
        [&](AddLine const& add) {
            add({"PLACE", "TO", "EMERG", "ALERT", "CRIT", "ERR", "WARNING", "NOTICE", "INFO", "DEBUG",
                 "REASON"});
            for (auto const& [name, target, arrivals, notes] : result.places) {
                auto const& all = arrivals;
                add({name, target, cell_of(all[0]), cell_of(all[1]), cell_of(all[2]), cell_of(all[3]),
                     cell_of(all[4]), cell_of(all[5]), cell_of(all[6]), cell_of(all[7]), text_of(notes)});
            }
        },
        screen, LastColumn::WrappedUnderHeading);
    auto const verdict = fmt::format("{}; {} messages \"logctl probe {}\" were logged",
                                     result.is_right() ? "as the settings say" : "not as the settings say",
                                     result.messages, result.token);
    return fmt::format("{}\n{}\n", table, wrapped(verdict, 0, screen.width));
}

std::string to_json(ProbeResult const& result) {
    auto places = ordered_json::array();
    for (auto const& place : result.places) {
        ordered_json arrivals;
        for (std::size_t severity = 0; severity < severities.size(); ++severity) {
            arrivals[std::string{severities[severity]}] = name_of(place.arrivals[severity]);
        }
        places.push_back(
            with_notes({{"place", place.name}, {"to", place.target}, {"arrivals", arrivals}}, place.notes));
    }
    ordered_json const whole{{"as_set", result.is_right()},
                             {"token", result.token},
                             {"messages", result.messages},
                             {"places", places}};
    return whole.dump(2) + "\n";
}

} // namespace

Action probe_command(Arguments& arguments) {
    auto const json = std::make_shared<bool>(false);
    arguments.add({"--json", "Print one JSON object"}, *json);
    return [json](Context const& context) -> core::Result<int> {
        OUTCOME_TRY(result, probe(context));
        print(*json ? to_json(result) : to_text(result, screen()));
        return result.is_right() ? 0 : 1;
    };
}

} // namespace xpon::logctl
