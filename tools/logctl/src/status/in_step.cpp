#include "status/in_step.hpp"

#include <ctime>
#include <thread>

#include <fmt/format.h>

#include "output.hpp"
#include "wanted.hpp"

namespace xpon::logctl {

namespace {

/// A module that has not answered does not listen, but for those which are about to reach a new broker.
bool is_new(Part const& part) {
    constexpr std::int64_t seconds_to_connect = 9; // endpoints try every 8 s at the latest
    return part.process && std::time(nullptr) - part.process->since < seconds_to_connect;
}

bool may_still_answer(OutputStatus const& status, Report const& report) {
    return status.running == unknown && std::ranges::any_of(report.parts, is_new);
}

bool surely_in_step(Report const& report) {
    return std::ranges::all_of(report.parts, &Part::works) &&
           std::ranges::all_of(report.outputs, [&](OutputStatus const& status) {
               return status.in_step() && !status.hidden && !may_still_answer(status, report);
           });
}

bool waits_for_restart(Report const& report) {
    return std::ranges::any_of(report.outputs,
                               [](OutputStatus const& status) { return status.written == restart_needed; });
}

void tell_what_is_not(Report const& report) {
    for (auto const& part : report.parts) {
        if (!part.works()) {
            tell(fmt::format("{} {}: {}", part.name, part.state, text_of(part.notes)));
        }
    }
    for (auto const& note : report.database) {
        tell(text_of({note}));
    }
    for (auto const& status : report.outputs) {
        if (!status.in_step() || status.hidden || may_still_answer(status, report)) {
            tell(fmt::format("{}: wanted {}, written {}, running {}: {}", status.output->name, status.wanted,
                             status.written, status.running, text_of(status.notes)));
        }
    }
}

} // namespace

core::Result<bool> wait_until_in_step(Context const& context, std::span<std::uint32_t const> fields,
                                      std::chrono::duration<double> limit) {
    OUTCOME_TRY(wanted, Wanted::open(context));
    OUTCOME_TRY(outputs, wanted.outputs_with(fields));
    using std::chrono::milliseconds;
    auto const begin = std::chrono::steady_clock::now();
    auto const end = begin + std::chrono::duration_cast<std::chrono::steady_clock::duration>(limit);
    for (;;) {
        auto const report = look(context, outputs);
        if (surely_in_step(report)) {
            return true;
        }
        auto const now = std::chrono::steady_clock::now();
        if (now >= end || waits_for_restart(report)) {
            tell_what_is_not(report);
            return false;
        }
        std::this_thread::sleep_for(now - begin < milliseconds{500} ? milliseconds{5} : milliseconds{50});
    }
}

} // namespace xpon::logctl
