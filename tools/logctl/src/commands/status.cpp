#include <algorithm>
#include <cstring>
#include <filesystem>
#include <memory>

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands/command.hpp"
#include "file_text.hpp"
#include "output.hpp"
#include "running.hpp"
#include "stored.hpp"
#include "table.hpp"
#include "wanted.hpp"

namespace xpon::logctl {

namespace {

using nlohmann::ordered_json;

constexpr char const* in_order = "ok";
constexpr char const* unknown = "unknown";

/// One of the daemon's outputs: what the database asks for, what was written, what runs. Each is "ok" or says
/// in a word what it is instead.
// NOLINTBEGIN(readability-redundant-member-init): without them a partial initialiser is a warning
struct Output {
    log_config::Output const* output;
    std::string wanted = in_order;
    std::string written = in_order;
    std::string running = in_order;
    std::string detail = {}; ///< in words, what is behind a state that is not "ok"

    bool in_step() const {
        return wanted == in_order && written == in_order && (running == in_order || running == unknown);
    }
};

struct Report {
    std::optional<Process> daemon;
    std::optional<Process> broker;
    std::optional<Process> syslog_ng;
    std::string database_problem = {}; ///< why nothing can be made from the database; empty if it can
    std::vector<Terminal> terminals = {};
    std::vector<Output> outputs = {};

    bool in_step() const {
        return daemon && std::ranges::all_of(outputs, &Output::in_step) && count(TerminalState::Stalled) == 0;
    }
    std::ptrdiff_t count(TerminalState state) const {
        return std::ranges::count(terminals, state, &Terminal::state);
    }
};
// NOLINTEND(readability-redundant-member-init)

void add_detail(Output& output, std::string const& text) {
    if (text.empty()) {
        return;
    }
    output.detail += (output.detail.empty() ? "" : "; ") + text;
}

/// Compares what the database asks for with what is on the disk.
void compare(Output& output, core::Result<std::string> const& wanted,
             std::optional<std::string> const& written) {
    if (!written) {
        output.written = "missing";
    }
    if (wanted.has_error()) {
        output.wanted = "invalid";
        output.written = written ? unknown : output.written;
        add_detail(output, text_of(wanted.error()));
    } else if (written && !holds(*output.output, *written, wanted.value())) {
        output.written = "differs";
    }
}

core::Result<std::string> text_for(log_config::Output const& output, core::Result<Wanted> const& wanted) {
    if (wanted.has_error()) {
        return core::ErrorPayload{core::Error::InvalidState, std::string{}}; // said once for all outputs
    }
    return wanted.value().text(output);
}

void judge_syslog_ng(Output& output, std::optional<std::string> const& written, Context const& context) {
    if (auto const stored = stored_values(context.database); stored.has_value()) {
        if (auto const problem = log_folder_problem(stored.value())) {
            output.wanted = "unsafe";
            add_detail(output, *problem);
        }
    }
    auto const loaded = loaded_syslog_ng_conf();
    if (loaded.has_error()) {
        output.running = "down";
        add_detail(output, text_of(loaded.error()));
    } else if (loaded.value() != written) {
        output.running = "differs";
        add_detail(output, "another configuration is loaded than the file holds");
    }
}

void judge_kernel(Output& output, core::Result<std::string> const& wanted,
                  std::optional<std::string> const& written) {
    output.running = output.written;
    if (wanted.has_value() && output.written == "differs") {
        add_detail(output, fmt::format("console level {} is wanted, {} is set", std::stoi(wanted.value()),
                                       written->substr(0, written->find_first_of("\t\n"))));
    }
}

/// Milliseconds since the epoch.
std::optional<std::uint64_t> modification_time(std::string const& path) {
    struct stat status{};
    if (stat(path.c_str(), &status) != 0) {
        return std::nullopt;
    }
    return static_cast<std::uint64_t>(status.st_mtim.tv_sec) * 1000U +
           static_cast<std::uint64_t>(status.st_mtim.tv_nsec) / 1'000'000U;
}

using Answers = core::Result<std::map<std::uint32_t, ipc::LastAnswer>>;

void judge_answer(Output& output, Modules_names module, Answers const& answers) {
    output.running = unknown;
    auto const written_at = modification_time(output.output->path);
    if (answers.has_error() || !written_at) {
        return;
    }
    auto const answer = answers.value().find(module);
    if (answer == answers.value().end()) {
        return;
    }
    auto const& [_, status, time] = answer->second;
    if (time < *written_at) {
        output.running = "stale";
        add_detail(output, fmt::format("the module last answered at {}, before the file was written",
                                       utc(static_cast<std::int64_t>(time / 1000))));
    } else if (status != 0) {
        output.running = "failed";
        add_detail(output, fmt::format("the module answered: {}", std::strerror(static_cast<int>(status))));
    } else {
        output.running = in_order;
    }
}

Output judge(log_config::Output const& output, core::Result<Wanted> const& from, Answers const& answers,
             Context const& context) {
    Output judged{&output};
    auto const wanted = text_for(output, from);
    auto const written = file_text(output.path);
    compare(judged, wanted, written);
    if (output.reader) {
        if (judged.written == "differs" && output.at_start_only) {
            judged.written = "restart needed";
            add_detail(judged, "its levels take effect when the daemon is next restarted");
        }
        judge_answer(judged, *output.reader, answers);
    } else if (&output == &log_config::kernel_output()) {
        judge_kernel(judged, wanted, written);
    } else {
        judge_syslog_ng(judged, written, context);
    }
    return judged;
}

/// A folder that is removed and made again while the daemon's unit runs is another than the one that the unit
/// lets it write. Only root can look.
void say_if_not_writable(Output& output, Process const& daemon) {
    auto const folder = std::filesystem::path{output.output->path}.parent_path();
    struct statvfs seen{};
    if (output.output != &log_config::kernel_output() && output.written != in_order &&
        statvfs(fmt::format("/proc/{}/root{}", daemon.pid, folder.native()).c_str(), &seen) == 0 &&
        (seen.f_flag & ST_RDONLY) != 0) {
        add_detail(output,
                   fmt::format("the daemon cannot write {}, which was made again since it started; let "
                               "it see that: systemctl restart log-config",
                               folder.native()));
    }
}

Report look(Context const& context) {
    Report report{find_process("log-config"), find_process("ipc-broker"), find_process("syslog-ng")};
    report.terminals = terminals(report.syslog_ng);
    auto const wanted = Wanted::open(context);
    report.database_problem = wanted.has_error() ? text_of(wanted.error()) : "";
    auto const answers = last_answers();
    for (auto const& output : log_config::outputs()) {
        report.outputs.push_back(judge(output, wanted, answers, context));
    }
    if (report.daemon) {
        for (auto& output : report.outputs) {
            say_if_not_writable(output, *report.daemon);
        }
    }
    return report;
}

Cell state_cell(std::string const& state) {
    return {state, state == in_order ? colour::green : state == unknown ? std::string_view{} : colour::red};
}

std::string_view name_of(TerminalState state) {
    switch (state) {
    case TerminalState::Open:
        return "open";
    case TerminalState::Receiving:
        return "receiving";
    case TerminalState::Stalled:
        return "stalled";
    }
    return "";
}

void add_process(AddLine const& add, std::string_view name, std::optional<Process> const& process) {
    if (process) {
        add({name, fmt::format("up since {}, process {}", utc(process->since), process->pid)});
    } else {
        add({name, {"down", colour::red}});
    }
}

void add_board(AddLine const& add, Report const& report) {
    auto const stalled = report.count(TerminalState::Stalled);
    add_process(add, "daemon", report.daemon);
    add_process(add, "broker", report.broker);
    add_process(add, "syslog-ng", report.syslog_ng);
    add({"database",
         report.database_problem.empty() ? Cell{"readable"} : Cell{report.database_problem, colour::red}});
    add({"terminals",
         {fmt::format("{} open, {} receiving, {} stalled", report.terminals.size(),
                      report.count(TerminalState::Receiving), stalled),
          stalled > 0 ? colour::red : std::string_view{}}});
}

void add_outputs(AddLine const& add, std::vector<Output> const& outputs) {
    add({"OUTPUT", "WANTED", "WRITTEN", "RUNNING", "REASON"});
    for (auto const& output : outputs) {
        add({output.output->name, state_cell(output.wanted), state_cell(output.written),
             state_cell(output.running), output.detail});
    }
}

void add_terminals(AddLine const& add, std::vector<Terminal> const& terminals) {
    add({"TERMINAL", "STATE", "MESSAGES"});
    for (auto const& [number, state, messages] : terminals) {
        add({fmt::format("/dev/pts/{}", number),
             {name_of(state), state == TerminalState::Stalled ? colour::red : std::string_view{}},
             std::to_string(messages)});
    }
}

std::string to_text(Report const& report, bool coloured) {
    auto text = aligned([&](auto const& add) { add_board(add, report); }, coloured) + "\n" +
                aligned([&](auto const& add) { add_outputs(add, report.outputs); }, coloured) + "\n";
    if (!report.terminals.empty()) {
        text += aligned([&](auto const& add) { add_terminals(add, report.terminals); }, coloured) + "\n";
    }
    auto const behind = report.outputs.size() -
                        static_cast<std::size_t>(std::ranges::count_if(report.outputs, &Output::in_step));
    text += report.in_step()
                ? fmt::format("in step: all {} outputs\n", report.outputs.size())
                : fmt::format("not in step: {} of {} outputs{}{}\n", behind, report.outputs.size(),
                              report.daemon ? "" : "; the daemon is down",
                              report.count(TerminalState::Stalled) > 0 ? "; a terminal is stalled" : "");
    return text;
}

ordered_json object_of(std::optional<Process> const& process) {
    if (!process) {
        return {{"up", false}, {"pid", nullptr}, {"since", nullptr}};
    }
    return {{"up", true}, {"pid", process->pid}, {"since", utc(process->since)}};
}

std::string to_json(Report const& report) {
    auto all_terminals = ordered_json::array();
    for (auto const& [number, state, messages] : report.terminals) {
        all_terminals.push_back({{"terminal", fmt::format("/dev/pts/{}", number)},
                                 {"state", name_of(state)},
                                 {"messages", messages}});
    }
    auto outputs = ordered_json::array();
    for (auto const& output : report.outputs) {
        outputs.push_back({{"output", output.output->name},
                           {"path", output.output->path},
                           {"wanted", output.wanted},
                           {"written", output.written},
                           {"running", output.running},
                           {"in_step", output.in_step()},
                           {"reason", output.detail}});
    }
    ordered_json const whole{{"in_step", report.in_step()},
                             {"daemon", object_of(report.daemon)},
                             {"broker", object_of(report.broker)},
                             {"syslog_ng", object_of(report.syslog_ng)},
                             {"database_problem", report.database_problem.empty()
                                                      ? ordered_json(nullptr)
                                                      : ordered_json(report.database_problem)},
                             {"terminals", std::move(all_terminals)},
                             {"outputs", std::move(outputs)}};
    return whole.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

core::Result<int> status(Context const& context, bool json) {
    auto const report = look(context);
    print(json ? to_json(report) : to_text(report, wants_colour()));
    return report.in_step() ? 0 : 1;
}

} // namespace

Action status_command(Arguments& arguments) {
    auto const json = std::make_shared<bool>(false);
    arguments.add({"--json", "Print one JSON object"}, *json);
    return [json](Context const& context) { return status(context, *json); };
}

} // namespace xpon::logctl
