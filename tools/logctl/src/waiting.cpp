#include "waiting.hpp"

#include <algorithm>
#include <csignal>
#include <vector>

#include <poll.h>
#include <sys/signalfd.h>

namespace xpon::logctl {

namespace {

/// In milliseconds, as poll takes it.
int left(Until until) {
    if (!until) {
        return -1;
    }
    auto const time = std::chrono::ceil<std::chrono::milliseconds>(*until - std::chrono::steady_clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(time.count(), 0, 60'000'000));
}

} // namespace

std::optional<std::size_t> first_readable(std::initializer_list<int> descriptors, Until until) {
    std::vector<pollfd> wanted;
    for (int const descriptor : descriptors) {
        wanted.push_back({descriptor, POLLIN, 0});
    }
    while (poll(wanted.data(), wanted.size(), left(until)) <= 0) {
        if (left(until) == 0) { // else a signal has come between
            return std::nullopt;
        }
    }
    auto const first = std::ranges::find_if(wanted, [](pollfd const& one) { return one.revents != 0; });
    return static_cast<std::size_t>(first - wanted.begin());
}

core::UniqueFd stop_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return core::UniqueFd{signalfd(-1, &signals, SFD_CLOEXEC)};
}

} // namespace xpon::logctl
