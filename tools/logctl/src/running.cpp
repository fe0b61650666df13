#include "running.hpp"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string_view>

#include <fmt/format.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "core/failure.hpp"
#include "core/process.hpp"
#include "file_text.hpp"
#include "process.hpp"
#include "xpon/cfgdb/printable.hpp"
#include "xpon/ipc/zmq_ipc.hpp"

namespace xpon::logctl {

namespace {

using core::Error;
using core::fail;
using Clock = std::chrono::steady_clock;

template <class T>
std::optional<T> number_in(std::string_view text) {
    T value{};
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc{} && end == text.data() + text.size() ? std::optional{value} : std::nullopt;
}

/// The names in a folder that are numbers.
std::vector<unsigned> numbers_in(char const* folder) {
    std::vector<unsigned> numbers;
    std::error_code failed;
    for (std::filesystem::directory_iterator entry{folder, failed}, end; !failed && entry != end;
         entry.increment(failed)) {
        if (auto const number = number_in<unsigned>(entry->path().filename().native())) {
            numbers.push_back(*number);
        }
    }
    std::ranges::sort(numbers);
    return numbers;
}

std::int64_t boot_time() {
    std::ifstream stat{"/proc/stat"};
    for (std::string word; stat >> word;) {
        if (word == "btime") {
            std::int64_t seconds = 0;
            stat >> seconds;
            return seconds;
        }
    }
    return 0;
}

/// When a process has started; nothing if it is gone.
std::optional<std::int64_t> start_of(unsigned pid) {
    auto const text = file_text(fmt::format("/proc/{}/stat", pid)).value_or("");
    auto const name_end = text.rfind(')'); // the name may hold anything
    if (name_end == std::string::npos) {
        return std::nullopt;
    }
    constexpr int fields_between = 19; // from the state to the start, in clock ticks since the boot
    std::istringstream rest{text.substr(name_end + 1)};
    std::string word;
    for (int field = 0; field < fields_between; ++field) {
        rest >> word;
    }
    std::int64_t ticks = 0;
    rest >> ticks;
    return rest ? std::optional{boot_time() + ticks / sysconf(_SC_CLK_TCK)} : std::nullopt;
}

core::Result<std::string> ask_syslog_ng(std::string const& what) {
    OUTCOME_TRY(asked, run_program({"syslog-ng-ctl", what}, {}, std::chrono::seconds{3}));
    if (asked.status != 0) {
        return fail(Error::CommonError, "syslog-ng does not run or does not answer");
    }
    return std::move(asked.out);
}

/// Messages by terminal, of those that the running configuration has an output for.
std::map<unsigned, std::uint64_t> sent_messages() {
    std::map<unsigned, std::uint64_t> sent;
    auto const statistics = ask_syslog_ng("stats");
    if (statistics.has_error()) {
        return sent;
    }
    // Such as "destination;d_rsh_3;;a;processed;12": an "o" instead of the "a" is one that is gone.
    constexpr std::string_view begin = "destination;d_rsh_";
    constexpr std::string_view middle = ";;a;processed;";
    std::istringstream lines{statistics.value()};
    for (std::string line; std::getline(lines, line);) {
        auto const at = line.find(middle);
        if (!line.starts_with(begin) || at == std::string::npos) {
            continue;
        }
        auto const terminal =
            number_in<unsigned>(std::string_view{line}.substr(begin.size(), at - begin.size()));
        auto const messages = number_in<std::uint64_t>(std::string_view{line}.substr(at + middle.size()));
        if (terminal && messages) {
            sent[*terminal] = *messages;
        }
    }
    return sent;
}

/// The descriptors of a process that it waits for until they take more, as its epoll instances tell.
std::set<unsigned> awaited_descriptors(Process const& process) {
    std::set<unsigned> awaited;
    auto const folder = fmt::format("/proc/{}/fd", process.pid);
    for (auto const fd : numbers_in(folder.c_str())) {
        std::error_code failed;
        if (std::filesystem::read_symlink(fmt::format("{}/{}", folder, fd), failed) !=
            "anon_inode:[eventpoll]") {
            continue;
        }
        // Such as "tfd:       17 events:       1c data:     564ee093c8a8".
        std::istringstream lines{file_text(fmt::format("{}info/{}", folder, fd)).value_or("")};
        for (std::string line; std::getline(lines, line);) {
            std::istringstream words{line};
            std::string label;
            unsigned target = 0;
            unsigned events = 0;
            if (words >> label >> target && label == "tfd:" && words >> label >> std::hex >> events &&
                (events & EPOLLOUT) != 0) {
                awaited.insert(target);
            }
        }
    }
    return awaited;
}

/// Of the terminals that a process has open.
struct BusyTerminals {
    std::set<unsigned> full;    ///< take nothing more
    std::set<unsigned> awaited; ///< the process waits until they take more
};

/// A second descriptor of the same open file is asked whether it is full: when it is closed, nobody who
/// watches the terminal hears of it.
BusyTerminals busy_terminals(Process const& process) {
    BusyTerminals busy;
    auto const target = core::open_pidfd(process.pid);
    if (!target) {
        return busy;
    }
    auto const awaited = awaited_descriptors(process);
    auto const folder = fmt::format("/proc/{}/fd", process.pid);
    for (auto const fd : numbers_in(folder.c_str())) {
        std::error_code failed;
        auto const path = std::filesystem::read_symlink(fmt::format("{}/{}", folder, fd), failed);
        auto const terminal = number_in<unsigned>(path.filename().native());
        if (failed || path.parent_path() != "/dev/pts" || !terminal) {
            continue;
        }
        core::UniqueFd const same{static_cast<int>(syscall(SYS_pidfd_getfd, target.get(), fd, 0))};
        pollfd writable{same.get(), POLLOUT, 0};
        if (same && poll(&writable, 1, 0) == 0) {
            busy.full.insert(*terminal);
        }
        if (awaited.contains(fd)) {
            busy.awaited.insert(*terminal);
        }
    }
    return busy;
}

/// The terminals that syslog-ng cannot go on with, of which it has sent so many messages before.
std::set<unsigned> stalled_terminals(Process const& syslog_ng,
                                     std::map<unsigned, std::uint64_t> const& sent_before) {
    auto busy = busy_terminals(syslog_ng);
    if (std::ranges::includes(busy.full, busy.awaited)) {
        return busy.full;
    }
    // A terminal may take some more without that the kernel tells who waits for it. The wait for one that
    // does go on ends each time that syslog-ng has a turn, and it has one when it is asked.
    auto awaited = std::move(busy.awaited);
    for (int turn = 0; turn < 2; ++turn) {
        auto const sent = sent_messages();
        busy = busy_terminals(syslog_ng);
        std::erase_if(awaited, [&](unsigned terminal) {
            auto const before = sent_before.find(terminal);
            auto const now = sent.find(terminal);
            return !busy.awaited.contains(terminal) || before == sent_before.end() || now == sent.end() ||
                   now->second != before->second;
        });
    }
    busy.full.merge(awaited);
    return busy.full;
}

std::optional<ipc::Message> next_message(ipc::IIpc& bus, Clock::time_point end) {
    for (;;) {
        auto message = bus.receive();
        if (message.has_error() || message.value()) {
            return message.has_error() ? std::nullopt : std::move(message).value();
        }
        auto const left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        pollfd wanted{bus.receive_fd(), POLLIN, 0};
        if (left.count() <= 0 || poll(&wanted, 1, static_cast<int>(left.count())) <= 0) {
            return std::nullopt;
        }
    }
}

std::optional<ipc::Message> wait_for(ipc::IIpc& bus, std::uint16_t event, Clock::time_point end) {
    auto message = next_message(bus, end);
    while (message && message->header.event != event) {
        message = next_message(bus, end);
    }
    return message;
}

} // namespace

std::optional<Process> find_process(std::string const& name) {
    std::optional<Process> found;
    for (auto const pid : numbers_in("/proc")) {
        if (file_text(fmt::format("/proc/{}/comm", pid)) != name + "\n") {
            continue;
        }
        auto const since = start_of(pid);
        if (since && (!found || *since < found->since)) {
            found = Process{static_cast<int>(pid), *since};
        }
    }
    return found;
}

core::Result<std::string> loaded_syslog_ng_conf() {
    return ask_syslog_ng("config");
}

std::vector<Terminal> terminals(std::optional<Process> const& syslog_ng) {
    auto const sent = syslog_ng ? sent_messages() : std::map<unsigned, std::uint64_t>{};
    auto const stalled = syslog_ng ? stalled_terminals(*syslog_ng, sent) : std::set<unsigned>{};
    std::vector<Terminal> all;
    for (auto const number : numbers_in("/dev/pts")) {
        auto const found = sent.find(number);
        if (found == sent.end()) {
            all.push_back({number, TerminalState::Open, 0});
        } else {
            all.push_back({number,
                           stalled.contains(number) ? TerminalState::Stalled : TerminalState::Receiving,
                           found->second});
        }
    }
    return all;
}

core::Result<std::map<std::uint32_t, ipc::LastAnswer>> last_answers() {
    std::error_code unknown;
    if (!std::filesystem::exists(std::filesystem::path{ipc::default_folder} / "publish", unknown)) {
        return fail(Error::CommonError, "no message bus in {}", ipc::default_folder);
    }
    constexpr std::chrono::seconds patience{3};
    std::shared_ptr<ipc::IIpc> bus;
    try {
        bus = ipc::make_zmq_ipc(ipc::any_address, "logctl");
    } catch (std::exception const& exception) {
        return fail(Error::CommonError, "no endpoint on the message bus: {}", exception.what());
    }
    if (!wait_for(*bus, ipc::connected_event, Clock::now() + patience)) {
        return fail(Error::CommonError, "the message bus does not answer");
    }
    OUTCOME_TRY(bus->send({ipc::everybody, ipc::last_answers_query, ipc::last_answers_reply},
                          ipc::payload_of(ipc::LastAnswersQuery{bus->address()})));
    auto const reply = wait_for(*bus, ipc::last_answers_reply, Clock::now() + patience);
    auto const records = reply ? ipc::records_in<ipc::LastAnswer>(reply->payload) : std::nullopt;
    if (!records) {
        return fail(Error::CommonError, "the message bus does not answer");
    }
    std::map<std::uint32_t, ipc::LastAnswer> answers;
    for (auto const& answer : *records) {
        answers[answer.module] = answer;
    }
    return answers;
}

} // namespace xpon::logctl
