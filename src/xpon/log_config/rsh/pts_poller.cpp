#include "xpon/log_config/rsh/pts_poller.hpp"

#include <cerrno>
#include <cstdlib>
#include <span>
#include <stdexcept>
#include <utility>

#include <sys/inotify.h>
#include <unistd.h>

#include "core/failure.hpp"
#include "xpon/log_config/rsh/inotify_records.hpp"

namespace xpon::log_config {

using core::Error;
using core::fail;
using core::log;
using core::log_failure;
using core::log_routine;
using core::success;

namespace {

// Deletion is not watched: a terminal that goes away is noticed when it is closed.
constexpr std::uint32_t watched_events = IN_CREATE | IN_CLOSE_WRITE | IN_CLOSE_NOWRITE;
static_assert(watched_events == 0x118);

constexpr std::size_t read_buffer_size = 4096;

// Exits with 1 if the syslog daemon is the only process that still has the terminal open.
constexpr char check_script[] = R"(counter=0
for pid in $(fuser "{}" 2> /dev/null)
do
    counter=$((counter+1))
done

if [ "$counter" -eq 1 ]; then
    ps_out=$(pgrep syslog)
    if [ "$ps_out" -eq "$pid" ]; then
       exit 1
    fi
fi
exit 0)";
static_assert(sizeof check_script - 1 == 209);

[[noreturn]] void throw_errno(fmt::format_string<int const&> text) {
    int const reason = errno;
    throw std::runtime_error(fmt::format(text, reason));
}

} // namespace

PtsPoller::PtsPoller(std::filesystem::path const& path,
                     std::shared_ptr<system_wrapper::ISystemWrapper> const& system_wrapper,
                     std::shared_ptr<core::ILogger> const& logger, UpdateConfigCb&& update_config_cb)
  : path{path}
  , update_config_cb{std::move(update_config_cb)}
  , system_wrapper{system_wrapper}
  , logger{logger} {
    errno = 0;
    inotify_fd = inotify_init1(0);
    if (inotify_fd == -1) {
        throw_errno("inotify_init1 failed ({})");
    }
    watch_fd = inotify_add_watch(inotify_fd, path.c_str(), watched_events);
    if (watch_fd == -1) {
        throw_errno("inotify_add_watch failed ({})");
    }
    // Not close-on-exec, like the inotify descriptor. The system wrapper closes both in the commands it
    // starts.
    if (pipe(pipe_fds.data()) == -1) {
        throw_errno("pipe() failed ({})");
    }
    poll_fds = {{{inotify_fd, POLLIN, 0}, {pipe_fds[0], POLLIN, 0}}};
}

PtsPoller::~PtsPoller() {
    for (auto& end : pipe_fds) {
        if (end != -1) {
            close(end);
            end = -1;
        }
    }
    if (watch_fd != -1) {
        inotify_rm_watch(inotify_fd, watch_fd);
    }
    if (inotify_fd != -1) {
        close(inotify_fd);
    }
}

Result<void> PtsPoller::polling() {
    polling_flag = true;
    errno = 0;
    log(*logger, log_routine, "Poller start");
    while (polling_flag) {
        if (poll(poll_fds.data(), poll_fds.size(), -1) < 0) {
            return fail(Error::ErrorCApi, "poll() failed ({})", errno);
        }
        if ((poll_fds[1].revents & POLLIN) != 0) {
            return success();
        }
        OUTCOME_TRY(handle_events());
    }
    polling_flag = false;
    log(*logger, log_routine, "Poller stop");
    return success();
}

Result<void> PtsPoller::handle_events() {
    std::array<char, read_buffer_size> buffer;
    auto const size = read(inotify_fd, buffer.data(), buffer.size());
    if (size < 0) {
        return fail(Error::ErrorCApi, "read() failed ({})", errno);
    }
    std::span<char const> unread{buffer.data(), static_cast<std::size_t>(size)};
    while (auto const record = take_inotify_record(unread)) {
        if (!record->has_name) {
            continue;
        }
        if ((record->mask & IN_CREATE) != 0) {
            OUTCOME_TRY(handle_create(std::string{record->name}));
        } else if ((record->mask & (IN_CLOSE_WRITE | IN_CLOSE_NOWRITE)) != 0) {
            OUTCOME_TRY(handle_close(std::string{record->name}));
        }
    }
    return success();
}

Result<void> PtsPoller::handle_create(std::string const& name) {
    return report(RemoteLoggerAction::Add, name, "Add remote shell {}", name);
}

Result<void> PtsPoller::handle_close(std::string const& name) {
    auto const& folder = path.native();
    if (!system_wrapper->execute(fmt::format("sync {} &> /dev/null", folder)).has_value()) {
        log(*logger, log_failure, "Failed sync for directory {}", folder);
    }
    auto const terminal = folder + "/" + name;
    if (is_still_used(terminal)) {
        return success();
    }
    // The full path; the add message has the bare name.
    return report(RemoteLoggerAction::Remove, name, "Remove remote shell {}", terminal);
}

bool PtsPoller::is_still_used(std::string const& terminal) {
    std::error_code ignored;
    auto const type = std::filesystem::status(terminal, ignored).type();
    if (type == std::filesystem::file_type::none || type == std::filesystem::file_type::not_found) {
        return false;
    }
    auto const status = system_wrapper->execute(fmt::format(fmt::runtime(check_script), terminal));
    if (!status.has_value()) {
        log(*logger, log_failure, "Failed remote shell check need close {}", terminal);
        return true;
    }
    return status.value() == 0;
}

Result<void> PtsPoller::report(RemoteLoggerAction action, std::string const& name,
                               core::LocatedFormat<std::string const&> text, std::string const& logged_as) {
    if (!update_config_cb) {
        return success();
    }
    log(*logger, log_routine, text, logged_as);
    return update_config_cb(RemoteLoggerEvent{std::strtol(name.c_str(), nullptr, 10), action});
}

Result<void> PtsPoller::stop() {
    if (polling_flag) {
        polling_flag = false;
        unsigned char const wake_up = 1;
        if (write(pipe_fds[1], &wake_up, sizeof wake_up) == -1) {
            return fail(Error::ErrorCApi, "write() failed ({})", errno);
        }
    }
    return success();
}

Result<void> PtsPoller::set_update_config_cb(UpdateConfigCb&& callback) {
    update_config_cb = std::move(callback);
    return success();
}

} // namespace xpon::log_config
