#include "board/terminals.hpp"

#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>

#include <fmt/format.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "core/process.hpp"
#include "file_text.hpp"
#include "number_in.hpp"

namespace xpon::logctl {

namespace {

/// Messages by terminal, of those that the running configuration has an output for.
std::map<unsigned, std::uint64_t> sent_messages(Statistics const& statistics) {
    constexpr std::string_view prefix = "d_rsh_";
    std::map<unsigned, std::uint64_t> sent;
    for (auto const& [name, counters] : statistics) {
        if (auto const terminal = name.starts_with(prefix)
                                      ? number_in<unsigned>(std::string_view{name}.substr(prefix.size()))
                                      : std::nullopt) {
            sent[*terminal] = counters.processed.value_or(0);
        }
    }
    return sent;
}

/// The descriptors of a process that it waits for until they take more, as its epoll instances tell.
std::set<unsigned> awaited_descriptors(Process const& process) {
    std::set<unsigned> awaited;
    auto const folder = fmt::format("/proc/{}/fd", process.pid);
    for (auto const fd : numbers_in(folder)) {
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
    for (auto const fd : numbers_in(folder)) {
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
                                     std::map<unsigned, std::uint64_t> const& sent_before, Deadline end) {
    auto busy = busy_terminals(syslog_ng);
    if (std::ranges::includes(busy.full, busy.awaited)) {
        return busy.full;
    }
    // A terminal can have room again without the kernel waking the waiter. If it does take more, syslog-ng's
    // wait for it ends whenever syslog-ng has a turn, and it has one when it is asked.
    auto awaited = std::move(busy.awaited);
    for (int turn = 0; turn < 2; ++turn) {
        auto const answer = ask_syslog_ng("stats", end);
        auto const sent = sent_messages(answer.has_value() ? statistics_in(answer.value()) : Statistics{});
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

} // namespace

std::vector<Terminal> terminals(std::optional<Process> const& syslog_ng, Statistics const& statistics,
                                Deadline end) {
    auto const sent = sent_messages(statistics);
    auto const stalled =
        syslog_ng && !sent.empty() ? stalled_terminals(*syslog_ng, sent, end) : std::set<unsigned>{};
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

} // namespace xpon::logctl
