#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <system_error>

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <spawn.h>
#include <sys/timerfd.h>
#include <syslog.h>
#include <unistd.h>

#include "commands/change.hpp"
#include "core/failure.hpp"
#include "core/unique_fd.hpp"
#include "output.hpp"
#include "process.hpp"
#include "xpon/cfgdb/change_feed.hpp"
#include "xpon/cfgdb/trial.hpp"

namespace xpon::logctl {

namespace {

using cfgdb::BootInstant;
using core::Error;
using core::fail;

struct Options : ChangeOptions {
    std::vector<std::string> words;
    bool recover = false;
    std::optional<std::int64_t> guard;
};

constexpr double longest_minutes = 7 * 24 * 60;

core::Result<std::int64_t> seconds_in(std::string const& minutes) {
    char* end = nullptr;
    double const number = std::strtod(minutes.c_str(), &end);
    bool const valid = end != minutes.c_str() && *end == '\0' && number > 0 && number <= longest_minutes;
    if (!valid) {
        return fail(Error::InvalidInputArg, "\"{}\" is refused, allowed are more than 0 and up to {} minutes",
                    minutes, longest_minutes);
    }
    return static_cast<std::int64_t>(std::ceil(number * 60));
}

bool systemd_runs() {
    return access("/run/systemd/system", F_OK) == 0 && access("/run/systemd/private", F_OK) == 0;
}

std::string unit_of(BootInstant const& end) {
    return fmt::format("logctl-recover-{}", end.seconds);
}

void stop_timer(BootInstant const& end) {
    // Where it stays, it finds nothing to do.
    std::ignore = run_program({"systemctl", "--quiet", "stop", unit_of(end) + ".timer"});
}

/// What undoes the trial when its time is over and this program may be long gone: a timer of the service
/// manager, else a process of its own session in the background. Set before the commit, so that no death in
/// between leaves a trial that nobody ends.
class Alarm {
  public:
    Alarm(Context const& context, BootInstant end_of_trial)
      : end{std::move(end_of_trial)} {
        std::error_code unknown;
        command = {std::filesystem::read_symlink("/proc/self/exe", unknown), "--database",
                   std::filesystem::absolute(context.database, unknown), "commit-confirm"};
    }

    core::Result<void> set(std::int64_t seconds) {
        timer = systemd_runs() && start_timer(seconds);
        return timer ? core::Result<void>{core::success()} : start_guard();
    }

    /// Not needed after all. The process in the background sees for itself that there is no trial.
    void cancel() const {
        if (timer) {
            stop_timer(end);
        }
    }

  private:
    bool start_timer(std::int64_t seconds) const {
        std::vector<std::string> argv{"systemd-run",
                                      "--quiet",
                                      "--collect",
                                      "--unit=" + unit_of(end),
                                      fmt::format("--on-active={}", seconds),
                                      "--timer-property=AccuracySec=1s",
                                      "--timer-property=IgnoreOnIsolate=yes",
                                      "--property=Restart=on-failure", // until it could be undone
                                      "--property=RestartSec=10"};
        argv.insert(argv.end(), command.begin(), command.end());
        argv.emplace_back("--recover");
        auto const started = run_program(argv, {}, std::chrono::seconds{10});
        return started.has_value() && started.value().status == 0;
    }

    core::Result<void> start_guard() {
        auto argv = command;
        argv.insert(argv.end(), {"--guard", std::to_string(end.seconds)});
        std::vector<char*> pointers(argv.size() + 1, nullptr);
        std::ranges::transform(argv, pointers.begin(), [](auto& text) { return text.data(); });
        std::array<int, 2> ends{-1, -1};
        if (pipe2(ends.data(), O_CLOEXEC) != 0) {
            return fail(Error::CommonError, "no pipe ({})", std::generic_category().message(errno));
        }
        core::UniqueFd const theirs{ends[0]};
        alive.reset(ends[1]);
        posix_spawn_file_actions_t files;
        posix_spawn_file_actions_init(&files);
        posix_spawn_file_actions_adddup2(&files, theirs.get(), STDIN_FILENO);
        for (int const fd : {STDOUT_FILENO, STDERR_FILENO}) {
            posix_spawn_file_actions_addopen(&files, fd, "/dev/null", O_RDWR, 0);
        }
        posix_spawn_file_actions_addchdir_np(&files, "/");
        posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);
        posix_spawnattr_t attributes;
        posix_spawnattr_init(&attributes);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
        pid_t guard = -1;
        int const error =
            posix_spawn(&guard, pointers.front(), &files, &attributes, pointers.data(), environ);
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&files);
        if (error != 0) {
            return fail(Error::CommonError, "no process in the background ({})",
                        std::generic_category().message(error));
        }
        return core::success();
    }

    BootInstant end;
    std::vector<std::string> command;
    bool timer = false;
    core::UniqueFd alive; // closed when this program has committed, or died: so the other process knows
};

std::string undone_in(BootInstant const& end) {
    auto const left = std::max<std::int64_t>(end.seconds - BootInstant::in(0).seconds, 0);
    return end.over() ? "undone as soon as possible, its time is over"
                      : fmt::format("undone in {} min {} s", left / 60, left % 60);
}

bool has_database(Context const& context) {
    std::error_code unknown;
    return std::filesystem::exists(context.database / "running.db", unknown);
}

/// At the end of the time, after a reboot, and wherever the timer was lost. A database that is not there has
/// nothing to recover.
core::Result<int> recover(Context const& context) {
    if (!has_database(context)) {
        return 0;
    }
    OUTCOME_TRY(trial, cfgdb::pending_trial(context.database));
    if (!trial || !trial->end.over()) {
        return 0;
    }
    OUTCOME_TRY(changes, cfgdb::undo_trial(trial->number, context.database));
    for (auto const& [setting, old_value, new_value] : changes) {
        syslog(LOG_LOCAL0 | LOG_NOTICE, "logctl: not confirmed, so undone: %s: %s -> %s",
               setting->path.c_str(), old_value.c_str(), new_value.c_str());
    }
    return 0;
}

core::Result<int> commit(Context const& context, Options const& options) {
    OUTCOME_TRY(seconds, seconds_in(options.words.front()));
    cfgdb::Transaction transaction;
    OUTCOME_TRY(add_assignments(std::span{options.words}.subspan(1), transaction));
    if (options.dry_run) {
        return change(transaction, context, options);
    }
    auto const end = BootInstant::in(seconds);
    Alarm alarm{context, end};
    OUTCOME_TRY(alarm.set(seconds));
    auto const committed = cfgdb::commit_trial(transaction, end, context.database);
    if (committed.has_error() || committed.value().empty()) {
        alarm.cancel();
    }
    if (committed.has_error() && committed.error().error == Error::Already) {
        OUTCOME_TRY(trial, cfgdb::pending_trial(context.database));
        return fail(Error::Already,
                    "{}; confirm it with: logctl confirm, or undo it with: logctl rollback {}{}",
                    text_of(committed.error()), trial ? trial->number - 1 : 0,
                    trial ? fmt::format(" (it is {})", undone_in(trial->end)) : "");
    }
    OUTCOME_TRY(changes, committed);
    if (!changes.empty() && end.over()) { // whatever was to undo it may have come before
        OUTCOME_TRY(recover(context));
        return fail(Error::InvalidState, "the time was over before the change was made, so it is undone");
    }
    tell_changes(changes, options.verbose);
    tell(changes.empty() ? "nothing is changed, so there is nothing to confirm"
                         : fmt::format("{} unless you confirm it: logctl confirm", undone_in(end)));
    return follow(transaction.fields(), !changes.empty(), context, options);
}

/// Whether there surely is no trial that ends at that second of this boot.
bool nothing_waits(Context const& context, std::int64_t until) {
    auto const looked = cfgdb::pending_trial(context.database);
    if (looked.has_error()) {
        return !has_database(context);
    }
    auto const& trial = looked.value();
    return !trial || trial->end.seconds != until;
}

/// A database that is locked or a disk that is full need not be so for ever: tries again after 1, 2, 4 ... 60
/// s.
int recover_at_last(Context const& context) {
    constexpr unsigned longest = 60;
    for (unsigned wait = 1;; wait = std::min(2 * wait, longest)) {
        auto const recovered = recover(context);
        if (recovered.has_value()) {
            return recovered.value();
        }
        syslog(LOG_LOCAL0 | LOG_ERR, "logctl: not confirmed, but it cannot be undone: %s",
               text_of(recovered.error()).c_str());
        sleep(wait);
    }
}

/// Sleeps until that second of this boot, or until there is no trial that ends then; while standard input is
/// open it may still come, even late.
core::Result<int> guard(Context const& context, std::int64_t until) {
    core::UniqueFd const timer{timerfd_create(CLOCK_BOOTTIME, TFD_CLOEXEC)};
    itimerspec const end{{}, {until, 0}};
    timerfd_settime(timer.get(), TFD_TIMER_ABSTIME, &end, nullptr);
    pollfd wanted[] = {{timer.get(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}, {-1, POLLIN, 0}};
    std::unique_ptr<cfgdb::ChangeFeed> feed; // without it the end of the time is waited for
    bool over = false;
    bool decided = false;
    while (!over || !decided) {
        if (poll(wanted, std::size(wanted), -1) < 0 && errno != EINTR) {
            return fail(Error::CommonError, "cannot wait ({})", std::generic_category().message(errno));
        }
        if (wanted[0].revents != 0) {
            over = true;
            wanted[0].fd = -1;
        }
        if (wanted[1].revents != 0) { // before, there may not even have been a database
            decided = true;
            wanted[1].fd = -1;
            if (auto opened = cfgdb::ChangeFeed::open(context.database); opened.has_value()) {
                feed = std::move(opened).value();
                wanted[2].fd = feed->fd();
            }
        }
        if (feed) {
            std::ignore = feed->next(); // only the waking counts
        }
        if (decided && nothing_waits(context, until)) {
            return 0;
        }
    }
    return recover_at_last(context);
}

core::Result<int> commit_confirm(Context const& context, Options const& options) {
    return options.recover ? recover(context)
           : options.guard ? guard(context, *options.guard)
                           : commit(context, options);
}

core::Result<int> confirm(Context const& context) {
    OUTCOME_TRY(trial, cfgdb::confirm_trial(context.database));
    if (systemd_runs()) {
        stop_timer(trial.end);
    }
    return 0;
}

/// What is wrong with the words, unless logctl itself has called it.
std::string complaint(Options const& options) {
    if (options.recover || options.guard) {
        return {};
    }
    return options.words.size() < 2 ? "MINUTES PATH=VALUE is required"
                                    : complaint_about(std::span{options.words}.subspan(1));
}

} // namespace

Action commit_confirm_command(Arguments& arguments) {
    auto const options = std::make_shared<Options>();
    arguments.add({"MINUTES PATH=VALUE",
                   "How long to wait for logctl confirm, also a part of a minute; then as for set"},
                  options->words);
    add_change_options(arguments, *options);
    // For the timer and the unit that runs before the daemon; for the process in the background.
    arguments.add({.name = "--recover", .help = "", .hidden = true}, options->recover);
    arguments.add({.name = "--guard", .help = "", .hidden = true}, options->guard);
    arguments.verify([options] { return complaint(*options); });
    return [options](Context const& context) { return commit_confirm(context, *options); };
}

Action confirm_command(Arguments& /*arguments*/) {
    return confirm;
}

} // namespace xpon::logctl
