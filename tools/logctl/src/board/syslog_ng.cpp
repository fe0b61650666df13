#include "board/syslog_ng.hpp"

#include <array>
#include <sstream>

#include <fmt/format.h>

#include "core/failure.hpp"
#include "number_in.hpp"
#include "process.hpp"

namespace xpon::logctl {

using core::Error;
using core::fail;

core::Result<std::string> ask_syslog_ng(std::string const& what, Deadline end) {
    auto const left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
        return fail(Error::CommonError, "syslog-ng does not answer");
    }
    OUTCOME_TRY(asked, run_program({"syslog-ng-ctl", what}, {}, left));
    if (asked.status == 0) {
        return std::move(asked.out);
    }
    if (asked.err.find("Permission denied") != std::string::npos) {
        return fail(Error::NoAccess, "needs root");
    }
    return fail(Error::CommonError, "syslog-ng does not run or does not answer");
}

std::string counters_of(std::string_view receiver, std::string_view address, std::string_view port) {
    return fmt::format("{}#0;udp,{}:{}", receiver, address, port);
}

Statistics statistics_in(std::string const& answer) {
    // Such as "destination;d_file;;a;processed;12", "source;s_local;;a;processed;12" and
    // "dst.network;d_network1#0;udp,192.0.2.7:514;a;queued;0"; an "o" instead of the "a" is one that is gone, but
    // of a receiver whose address was changed some counters stay.
    Statistics statistics;
    std::istringstream lines{answer};
    for (std::string line; std::getline(lines, line);) {
        std::array<std::string, 6> field;
        std::istringstream fields{line};
        for (auto& text : field) {
            std::getline(fields, text, ';');
        }
        auto const& [kind, id, instance, state, counter, text] = field;
        auto const number = number_in<std::uint64_t>(text);
        bool const total = kind == "destination" || kind == "source";
        if (!number || state != "a" || !(total || kind == "dst.network")) {
            continue;
        }
        auto& counters = statistics[total ? id : fmt::format("{};{}", id, instance)];
        if (counter == "processed") {
            counters.processed = number;
        } else if (counter == "written") {
            counters.written = number;
        } else if (counter == "queued") {
            counters.queued = number;
        } else if (counter == "dropped") {
            counters.dropped = number;
        }
    }
    return statistics;
}

} // namespace xpon::logctl
