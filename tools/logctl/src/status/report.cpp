#include "status/report.hpp"

#include <cstring>
#include <filesystem>
#include <future>
#include <thread>

#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "board/module_answers.hpp"
#include "file_text.hpp"
#include "output.hpp"
#include "process.hpp"
#include "stored.hpp"
#include "wanted.hpp"
#include "xpon/cfgdb/usable.hpp"

namespace xpon::logctl {

namespace {

using log_config::Output;

constexpr char const* as_root = "sudo logctl status";

/// What was found on the board, before it is judged.
struct Facts {
    Part daemon;
    Part broker;
    Part syslog_ng;
    core::Result<Wanted> wanted;
    core::Result<StoredValues> stored;
    core::Result<std::string> loaded; ///< syslog-ng's configuration
    core::Result<Statistics> statistics;
    core::Result<ModuleAnswers> answers;
    std::vector<Terminal> terminals;
};

Part find_part(std::string_view name, std::string_view program, std::string_view unit) {
    Part part{name, unit, find_process(std::string{program}), "up", {}};
    if (!part.process) {
        part.state = "down";
        part.notes = {{fmt::format("{} does not run", program), fmt::format("systemctl start {}", unit)}};
    } else if (part.process->frozen) {
        part.state = "frozen";
        part.notes = {
            {fmt::format("{} is stopped", program), fmt::format("kill -CONT {}", part.process->pid)}};
    }
    return part;
}

/// A part that runs but gave no answer, though the caller may ask it.
void judge_answer(Part& part, core::ErrorPayload const& error) {
    if (part.works() && error.error != core::Error::NoAccess) {
        part.state = "silent";
        part.notes = {{text_of(error), fmt::format("systemctl restart {}", part.unit)}};
    }
}

core::ErrorPayload not_asked() {
    return core::ErrorPayload{core::Error::InvalidState};
}

void hear_syslog_ng(Facts& facts, Deadline end, bool statistics_too) {
    if (auto const control = find_program("syslog-ng-ctl"); control.has_error()) {
        facts.syslog_ng.notes = {{text_of(control.error()), "apt-get install syslog-ng-core"}};
    }
    if (!facts.syslog_ng.works()) {
        return;
    }
    facts.loaded = ask_syslog_ng("config", end);
    if (facts.loaded.has_error()) {
        facts.statistics = facts.loaded.error();
        return judge_answer(facts.syslog_ng, facts.loaded.error());
    }
    if (!statistics_too) {
        return;
    }
    auto const statistics = ask_syslog_ng("stats", end);
    if (statistics.has_error()) {
        facts.statistics = statistics.error();
        return judge_answer(facts.syslog_ng, statistics.error());
    }
    facts.statistics = statistics_in(statistics.value());
}

/// What somebody has to be asked for.
struct Questions {
    bool loaded;     ///< syslog-ng, for its configuration
    bool statistics; ///< and for its counters
    bool answers;    ///< the broker
};

Facts look_around(Context const& context, Questions const& questions) {
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds{3};
    Facts facts{find_daemon(),
                find_broker(),
                find_part("syslog-ng", "syslog-ng", "syslog-ng"),
                Wanted::open(context),
                stored_values(context.database),
                not_asked(),
                not_asked(),
                not_asked(),
                {}};
    std::future<core::Result<ModuleAnswers>> answers;
    if (questions.answers && facts.broker.works()) {
        answers = std::async(std::launch::async, [end] { return ask_broker(end); });
    }
    if (questions.loaded) {
        hear_syslog_ng(facts, end, questions.statistics);
    }
    if (questions.statistics) {
        facts.terminals =
            terminals(facts.syslog_ng.works() ? facts.syslog_ng.process : std::nullopt,
                      facts.statistics.has_value() ? facts.statistics.value() : Statistics{}, end);
    }
    if (answers.valid()) {
        facts.answers = answers.get();
        facts.broker = find_broker(); // perhaps another one, which has not heard of a module yet
        if (facts.answers.has_error()) {
            judge_answer(facts.broker, facts.answers.error());
        }
    }
    return facts;
}

void judge_wanted(OutputStatus& status, core::Result<std::string> const& wanted, Facts const& facts) {
    if (facts.wanted.has_error()) {
        status.wanted = unknown; // said once, of the database
    } else if (wanted.has_error()) {
        status.wanted = "invalid";
        std::string reset;
        for (auto const& row : facts.wanted.value().not_allowed(*status.output)) {
            reset += (reset.empty() ? "logctl reset " : " ") + row.path;
        }
        status.notes.push_back({text_of(wanted.error()), reset.empty() ? "logctl check" : reset});
    }
}

std::string restart_remedy(Facts const& facts) {
    return fmt::format("systemctl {} log-config", facts.daemon.process ? "restart" : "start");
}

/// What makes the daemon write an output, reload and tell again.
std::string apply_remedy(Output const& output, Facts const& facts) {
    return facts.daemon.works() && output.field != 0 ? fmt::format("logctl apply {}", output.name)
                                                     : restart_remedy(facts);
}

/// Compares what the database asks for with what is on the disk.
void judge_written(OutputStatus& status, core::Result<std::string> const& wanted,
                   std::optional<std::string> const& written, Facts const& facts) {
    auto const& output = *status.output;
    if (!written) {
        status.written = "missing";
        status.notes.push_back(
            {fmt::format("{} is {}", output.path,
                         access(output.path.c_str(), F_OK) == 0 ? "unreadable" : "missing"),
             apply_remedy(output, facts)});
    } else if (wanted.has_error()) {
        status.written = unknown;
    } else if (holds(output, *written, wanted.value())) {
        return;
    } else if (output.at_start_only) {
        status.written = restart_needed;
        status.notes.push_back(
            {"the daemon writes this file when it starts, not before", restart_remedy(facts)});
    } else {
        status.written = "differs";
        status.notes.push_back(
            {fmt::format("{} is not what the settings ask for", output.path), apply_remedy(output, facts)});
    }
}

void judge_syslog_ng(OutputStatus& status, std::optional<std::string> const& written, Facts const& facts) {
    if (facts.stored.has_value()) {
        if (auto const problem = log_folder_problem(facts.stored.value())) {
            status.wanted = "unsafe";
            status.notes.push_back({*problem, "logctl reset syslog.file.path"});
        }
    }
    if (!facts.syslog_ng.works()) {
        status.running = facts.syslog_ng.state;
        status.notes.insert(status.notes.end(), facts.syslog_ng.notes.begin(), facts.syslog_ng.notes.end());
    } else if (facts.loaded.has_error()) {
        status.running = unknown;
        status.hidden = true;
        status.notes.push_back({text_of(facts.loaded.error()), as_root});
    } else if (facts.loaded.value() != written) {
        status.running = "differs";
        status.notes.push_back({"syslog-ng runs another configuration than the file holds",
                                apply_remedy(*status.output, facts)});
    }
}

void judge_kernel(OutputStatus& status, core::Result<std::string> const& wanted,
                  std::optional<std::string> const& written) {
    status.running = status.written;
    if (status.written == "differs" && written) {
        status.notes.back().reason =
            fmt::format("console level {} is wanted, {} is set", std::stoi(wanted.value()),
                        written->substr(0, written->find_first_of("\t\n")));
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

void judge_reader(OutputStatus& status, Modules_names module, Facts const& facts) {
    status.running = unknown;
    auto const written_at = modification_time(status.output->path);
    if (facts.answers.has_error() || !written_at) {
        if (facts.answers.has_error() && facts.answers.error().error == core::Error::NoAccess) {
            status.hidden = true;
            status.notes.push_back({text_of(facts.answers.error()), as_root});
        }
        return; // else said of the broker, or of the file
    }
    auto const answer = facts.answers.value().find(module);
    if (answer == facts.answers.value().end()) {
        status.notes.push_back({"the module has not answered", ""});
        return;
    }
    // A module reads its file again whenever it reaches a broker.
    auto const read_again = status.output->field != 0 && facts.daemon.works()
                                ? apply_remedy(*status.output, facts)
                                : std::string{"systemctl restart ipc-broker"};
    auto const& [_, result, time] = answer->second;
    if (time < *written_at) {
        status.running = "stale";
        status.notes.push_back({fmt::format("the module knows the file as of {}, before it was last written",
                                            utc(static_cast<std::int64_t>(time / 1000))),
                                read_again});
    } else if (result != 0) {
        status.running = "failed";
        status.notes.push_back(
            {fmt::format("the module answered: {}", std::strerror(static_cast<int>(result))), read_again});
    } else {
        status.running = in_order;
    }
}

/// A folder that is removed and made again while the daemon's unit runs is another than the one that the unit
/// lets it write. Only root can look.
void say_if_not_writable(OutputStatus& status, Process const& daemon) {
    auto const folder = std::filesystem::path{status.output->path}.parent_path();
    struct statvfs seen{};
    if (status.output != &log_config::kernel_output() && status.written != in_order &&
        statvfs(fmt::format("/proc/{}/root{}", daemon.pid, folder.native()).c_str(), &seen) == 0 &&
        (seen.f_flag & ST_RDONLY) != 0) {
        status.notes = {{fmt::format("the daemon cannot write {}, which was made again since it started",
                                     folder.native()),
                         "systemctl restart log-config"}};
    }
}

OutputStatus judge(Output const& output, Facts const& facts) {
    OutputStatus status{&output};
    auto const wanted =
        facts.wanted.has_error() ? core::Result<std::string>{not_asked()} : facts.wanted.value().text(output);
    auto const written = file_text(output.path);
    judge_wanted(status, wanted, facts);
    judge_written(status, wanted, written, facts);
    if (auto const reader = output.reader) {
        judge_reader(status, *reader, facts);
    } else if (&output == &log_config::kernel_output()) {
        judge_kernel(status, wanted, written);
    } else {
        judge_syslog_ng(status, written, facts);
    }
    if (facts.daemon.process) {
        say_if_not_writable(status, *facts.daemon.process);
    }
    return status;
}

/// Why syslog-ng can write nothing to a file of this path; nothing if it can.
std::optional<Note> file_flaw(std::filesystem::path const& path, std::uint64_t messages) {
    constexpr char const* reload = "syslog-ng-ctl reload"; // it opens its files anew
    std::error_code failed;
    auto const there = std::filesystem::status(path, failed);
    if (!exists(there)) { // syslog-ng makes it anew where it can
        auto const of_setting = !path.native().starts_with("/dev/") && path.parent_path() != "/var/log";
        return messages > 0
                   ? std::optional{Note{fmt::format("{} is not there, though {} messages were sent to it",
                                                    path.native(), messages),
                                        of_setting ? "logctl reset syslog.file.path" : reload}}
                   : std::nullopt;
    }
    if (is_directory(there)) {
        return Note{fmt::format("{} is a folder", path.native()),
                    fmt::format("mv {0} {0}.aside && {1}", path.native(), reload)};
    }
    struct statvfs disk{};
    if (is_regular_file(there) && statvfs(path.c_str(), &disk) == 0 &&
        (disk.f_bavail == 0 || (disk.f_flag & ST_RDONLY) != 0)) {
        return Note{fmt::format("{} is on a disk that is {}", path.native(),
                                disk.f_bavail == 0 ? "full" : "read-only"),
                    disk.f_bavail == 0 ? "logrotate --force /etc/logrotate.d/log-config" : reload};
    }
    return std::nullopt;
}

/// The messages for a receiver that are queued and stay queued, by destination.
Statistics standing_queues(Statistics const& first, Deadline end) {
    auto const waits = [](auto const& entry) { return entry.second.queued.value_or(0) > 0; };
    if (std::ranges::none_of(first, waits)) {
        return {};
    }
    std::this_thread::sleep_for(std::chrono::milliseconds{200}); // what only passes through is gone by then
    auto const again = ask_syslog_ng("stats", end);
    auto now = again.has_value() ? statistics_in(again.value()) : Statistics{};
    std::erase_if(now, [&](auto const& entry) {
        auto const before = first.find(entry.first);
        return !waits(entry) || before == first.end() || entry.second.written != before->second.written;
    });
    return now;
}

/// Judges the destinations as far as syslog-ng tells of them.
class Destinations {
  public:
    Destinations(Facts const& from, Deadline end)
      : facts{from}
      , statistics{from.statistics.has_value() ? from.statistics.value() : Statistics{}}
      , standing{standing_queues(statistics, end)} {
        for (auto const& [number, state, _] : facts.terminals) {
            if (state == TerminalState::Stalled) {
                auto const holder = holder_of_terminal(number);
                stalled = {
                    fmt::format("nobody reads /dev/pts/{}{}, so no destination gets messages", number,
                                holder ? fmt::format(", held by {} (process {})", holder->name, holder->pid)
                                       : ""),
                    holder ? fmt::format("kill -HUP {}", holder->pid)
                           : fmt::format("fuser -v /dev/pts/{}", number)};
            }
        }
    }

    std::vector<DestinationStatus> all() const {
        std::vector<DestinationStatus> found;
        if (facts.stored.has_value()) {
            auto const& stored = facts.stored.value();
            auto const value = [&](std::string const& path) {
                return value_of(*cfgdb::find_setting(path), stored);
            };
            found.push_back(file("file", "d_file", value("syslog.file.path") + "system.log.1"));
            found.push_back(file("console", "d_console", "/dev/console"));
            for (int number = 1; number <= 3; ++number) {
                auto const path = fmt::format("syslog.remote.{}", number);
                if (auto const address = value(path + ".address"); address != "0.0.0.0") {
                    found.push_back(receiver(number, address, value(path + ".port")));
                }
            }
        }
        for (auto const& [number, state, _] : facts.terminals) {
            if (state != TerminalState::Open) {
                found.push_back(known(fmt::format("terminal {}", number), fmt::format("d_rsh_{}", number),
                                      fmt::format("/dev/pts/{}", number)));
            }
        }
        return found;
    }

  private:
    /// A destination without faults of its own.
    DestinationStatus known(std::string name, std::string const& id, std::string target) const {
        DestinationStatus status{std::move(name), id, std::move(target), std::string{in_order}, {}};
        auto const counters = statistics.find(id);
        if (counters != statistics.end()) {
            status.counters = counters->second;
        }
        if (!facts.syslog_ng.works()) {
            status.state = not_arriving;
            status.notes = facts.syslog_ng.notes;
        } else if (facts.statistics.has_error()) {
            status.state = unknown;
            status.notes = {{text_of(facts.statistics.error()), as_root}};
        } else if (stalled) {
            status.state = not_arriving;
            status.notes = {*stalled};
        } else if (counters == statistics.end()) {
            status.state = not_arriving;
            status.notes = {
                {"the configuration that syslog-ng runs has no such destination", restart_remedy(facts)}};
        }
        return status;
    }

    DestinationStatus file(std::string name, std::string const& id, std::string path) const {
        auto status = known(std::move(name), id, std::move(path));
        auto const flaw = status.state == in_order
                              ? file_flaw(status.target, status.counters.processed.value_or(0))
                              : std::nullopt;
        if (flaw) {
            status.state = not_arriving;
            status.notes = {*flaw};
        }
        return status;
    }

    DestinationStatus receiver(int number, std::string const& address, std::string const& port) const {
        auto const id = counters_of(fmt::format("d_network{}", number), address, port);
        auto status = known(fmt::format("remote {}", number), id, fmt::format("{} port {}", address, port));
        if (status.state != in_order) {
            return status;
        }
        auto const setting = fmt::format("syslog.remote.{}.address", number);
        if (auto const flaw = cfgdb::flaw_of(*cfgdb::find_setting(setting), address)) {
            status.state = not_arriving;
            status.notes = {{*flaw, "logctl reset " + setting}};
        } else if (auto const queue = standing.find(id); queue != standing.end()) {
            status.state = not_arriving;
            status.counters = queue->second;
            status.notes = {
                {fmt::format("nobody takes them there: {} messages wait", queue->second.queued.value_or(0)),
                 "logctl reset " + setting}};
        } else {
            status.state = "sent";
        }
        return status;
    }

    Facts const& facts;
    Statistics statistics;
    Statistics standing;
    std::optional<Note> stalled;
};

std::vector<Note> database_problem(Context const& context, Facts const& facts) {
    if (facts.wanted.has_value()) {
        return {};
    }
    bool const denied = access((context.database / "running.db").c_str(), R_OK) != 0 && errno == EACCES;
    return {{text_of(facts.wanted.error()), denied ? as_root : restart_remedy(facts)}};
}

} // namespace

Part find_daemon() {
    return find_part("daemon", "log-config", "log-config");
}

Part find_broker() {
    return find_part("broker", "ipc-broker", "ipc-broker");
}

Report look(Context const& context) {
    auto const facts = look_around(context, {true, true, true});
    Report report{{facts.daemon, facts.broker, facts.syslog_ng}, {}, {}, facts.terminals, {}, {}};
    report.database = database_problem(context, facts);
    if (auto trials = cfgdb::pending_trials(context.database); trials.has_value()) {
        report.trials = std::move(trials).value();
    }
    for (auto const& output : log_config::outputs()) {
        report.outputs.push_back(judge(output, facts));
    }
    report.destinations =
        Destinations{facts, std::chrono::steady_clock::now() + std::chrono::seconds{1}}.all();
    return report;
}

Report look_until_settled(Context const& context) {
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds{1};
    for (;;) {
        auto report = look(context);
        auto const settled = [](OutputStatus const& status) {
            return status.in_step() || status.written == restart_needed;
        };
        if (std::ranges::all_of(report.outputs, settled) ||
            !std::ranges::all_of(report.parts, &Part::works) || std::chrono::steady_clock::now() >= end) {
            return report;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds{50});
    }
}

Report look(Context const& context, Outputs const& outputs) {
    bool const syslog_ng = std::ranges::count(outputs, &log_config::syslog_ng_output()) > 0;
    bool const modules =
        std::ranges::any_of(outputs, [](Output const* output) { return output->reader.has_value(); });
    auto const facts = look_around(context, {syslog_ng, false, modules});
    Report report{{facts.daemon}, {}, {}, {}, {}, {}};
    if (modules) {
        report.parts.push_back(facts.broker);
    }
    if (syslog_ng) {
        report.parts.push_back(facts.syslog_ng);
    }
    report.database = database_problem(context, facts);
    for (auto const* const output : outputs) {
        report.outputs.push_back(judge(*output, facts));
    }
    return report;
}

} // namespace xpon::logctl
