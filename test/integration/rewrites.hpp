#pragma once

#include <array>
#include <map>
#include <string>

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include "core/unique_fd.hpp"

namespace xpon::test {

/// Counts how often files are replaced.
class Rewrites {
  public:
    Rewrites() {
        for (char const* folder : {"/etc/zlog_modules_config", "/etc/syslog-ng"}) {
            EXPECT_GE(inotify_add_watch(inotify.get(), folder, IN_MOVED_TO), 0);
        }
    }

    /// Until now, by the file's name.
    std::map<std::string, int> const& count() {
        alignas(inotify_event) std::array<char, 16384> buffer;
        for (ssize_t size = 0; (size = read(inotify.get(), buffer.data(), buffer.size())) > 0;) {
            for (ssize_t at = 0; at < size;) {
                auto const* const event = reinterpret_cast<inotify_event const*>(buffer.data() + at);
                EXPECT_EQ(event->mask & IN_Q_OVERFLOW, 0U);
                ++counts[event->len > 0 ? event->name : ""];
                at += static_cast<ssize_t>(sizeof *event + event->len);
            }
        }
        return counts;
    }

  private:
    core::UniqueFd inotify{inotify_init1(IN_CLOEXEC | IN_NONBLOCK)};
    std::map<std::string, int> counts;
};

} // namespace xpon::test
