#pragma once

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "core/blocked_signals.hpp"
#include "core/unique_fd.hpp"
#include "kit/wait_until.hpp"

namespace xpon::test {

/// Stands where the service manager listens for a daemon's notifications.
class NotifySocket {
  public:
    /// Listens at `path`, which must not exist yet.
    explicit NotifySocket(std::filesystem::path path)
      : where{std::move(path)}
      , socket{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)} {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (where.native().size() >= sizeof address.sun_path) {
            throw std::runtime_error{"too long for a socket: " + where.string()};
        }
        std::ranges::copy(where.native(), address.sun_path);
        if (bind(socket.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
            throw std::system_error{errno, std::generic_category(), where.string()};
        }
        // A thread of its own: a full socket would stop the daemon, and ten datagrams fill it.
        core::BlockedSignals const blocked;
        reader = std::thread{[this] { read(); }};
    }
    ~NotifySocket() {
        shutdown(socket.get(), SHUT_RD);
        reader.join();
    }
    NotifySocket(NotifySocket const&) = delete;
    NotifySocket& operator=(NotifySocket const&) = delete;

    /// What the daemon's environment must hold.
    std::string environment() const { return "NOTIFY_SOCKET=" + where.string(); }

    /// Waits for this text among those that no earlier wait has passed; true once it is there, false at the
    /// deadline.
    bool wait_for(std::string_view text, std::chrono::milliseconds deadline = default_deadline) {
        std::unique_lock lock{mutex};
        return arrived.wait_for(lock, deadline, [&] {
            auto const found = std::find(received.begin() + passed, received.end(), text);
            if (found == received.end()) {
                return false;
            }
            passed = found - received.begin() + 1;
            return true;
        });
    }

    /// Everything that was sent before the call, in order; a notification of several lines is several texts.
    std::vector<std::string> texts() {
        std::lock_guard const lock{mutex};
        take_in();
        return received;
    }

    /// Every notification that was sent before the call, whole, in order.
    std::vector<std::string> datagrams() {
        std::lock_guard const lock{mutex};
        take_in();
        return whole;
    }

  private:
    void read() {
        for (pollfd readable{socket.get(), POLLIN | POLLRDHUP, 0}; (readable.revents & POLLRDHUP) == 0;) {
            poll(&readable, 1, -1);
            std::lock_guard const lock{mutex};
            take_in();
        }
    }

    /// With `mutex` held, so that whatever was received is also recorded.
    void take_in() {
        std::array<char, 4096> buffer{};
        ssize_t length = 0;
        while ((length = recv(socket.get(), buffer.data(), buffer.size(), MSG_DONTWAIT)) > 0) {
            whole.emplace_back(buffer.data(), static_cast<std::size_t>(length));
            std::istringstream lines{whole.back()};
            for (std::string line; std::getline(lines, line);) {
                received.push_back(line);
            }
            arrived.notify_all();
        }
    }

    std::filesystem::path where;
    core::UniqueFd socket;
    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<std::string> whole;    // guarded by mutex
    std::vector<std::string> received; // guarded by mutex
    std::ptrdiff_t passed = 0;         // guarded by mutex; how many of them the waits have passed
    std::thread reader;
};

} // namespace xpon::test
