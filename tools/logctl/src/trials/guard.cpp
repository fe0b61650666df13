#include "trials/guard.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <memory>
#include <system_error>

#include <poll.h>
#include <sys/timerfd.h>
#include <syslog.h>
#include <unistd.h>

#include "core/failure.hpp"
#include "core/reason.hpp"
#include "core/unique_fd.hpp"
#include "output.hpp"
#include "stored.hpp"
#include "trials/overdue.hpp"
#include "xpon/cfgdb/change_feed.hpp"
#include "xpon/cfgdb/trial.hpp"

namespace xpon::logctl {

namespace {

class Guard {
  public:
    Guard(Context const& for_database, std::int64_t end)
      : context{for_database}
      , until{end} {
        wake(until);
    }

    core::Result<int> run() {
        for (;;) {
            if (poll(wanted, std::size(wanted), -1) < 0 && errno != EINTR) {
                return core::fail(core::Error::CommonError, "cannot wait ({})", core::reason_of(errno));
            }
            bool const hears = wanted[1].revents != 0;
            if (hears) {
                hear();
            }
            bool const woken = drain();
            if (woken || hears) {
                end_trials();
            }
            if (feed) {
                std::ignore = feed->next(); // only the waking counts
            }
            bool const may_come =
                wanted[1].fd >= 0 || !(decided || is_over() || !has_database(context.database));
            if (!may_come && nothing_waits()) {
                return 0;
            }
        }
    }

  private:
    void wake(std::int64_t second) const {
        itimerspec const end{{}, {second, 0}};
        timerfd_settime(timer.get(), TFD_TIMER_ABSTIME, &end, nullptr);
    }

    bool drain() const {
        std::uint64_t expirations = 0;
        return wanted[0].revents != 0 && read(timer.get(), &expirations, sizeof expirations) > 0;
    }

    bool is_over() const { return cfgdb::BootInstant::in(0).seconds >= until; }

    /// Whether there is a trial has been decided, or who was to decide it is dead. Before, there may not even
    /// have been a database. Without the feed only the time is waited for.
    void hear() {
        char told = 0;
        decided = read(STDIN_FILENO, &told, 1) == 1;
        wanted[1].fd = -1;
        if (!decided && has_database(context.database)) {
            decided = cfgdb::settle(context.database).has_value();
        }
        if (auto opened = cfgdb::ChangeFeed::open(context.database); opened.has_value()) {
            feed = std::move(opened).value();
            wanted[2].fd = feed->fd();
        }
    }

    /// A database that is locked or a disk that is full need not be so for ever: tries again after 1, 2, 4
    /// ... 60 s. Not at every change that others make: each failure can be a change for the feed.
    void end_trials() {
        if (!is_over()) {
            return;
        }
        if (auto const ended = end_overdue_trials(context); ended.has_error()) {
            syslog(LOG_LOCAL0 | LOG_ERR, "logctl: the time of a trial is over, but it cannot be undone: %s",
                   text_of(ended.error()).c_str());
        }
        constexpr std::int64_t longest = 60;
        wake(cfgdb::BootInstant::in(pause).seconds);
        pause = std::min(2 * pause, longest);
    }

    /// Whether there surely is no trial left that ends then.
    bool nothing_waits() const {
        auto const trials = cfgdb::pending_trials(context.database);
        if (trials.has_error()) {
            return !has_database(context.database);
        }
        return std::ranges::none_of(trials.value(), [this](cfgdb::Trial const& trial) {
            return trial.terms.timer.empty() && trial.terms.end.seconds == until;
        });
    }

    Context const& context;
    std::int64_t until;
    std::int64_t pause = 1;
    bool decided = false; // whether there is a trial
    core::UniqueFd timer{timerfd_create(CLOCK_BOOTTIME, TFD_CLOEXEC | TFD_NONBLOCK)};
    pollfd wanted[3] = {{timer.get(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}, {-1, POLLIN, 0}};
    std::unique_ptr<cfgdb::ChangeFeed> feed;
};

} // namespace

core::Result<int> guard_trial(Context const& context, std::int64_t until) {
    std::error_code stays;
    std::filesystem::current_path("/", stays); // no folder is kept busy
    return Guard{context, until}.run();
}

} // namespace xpon::logctl
