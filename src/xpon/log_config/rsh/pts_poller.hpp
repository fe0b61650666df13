#pragma once

#include <array>
#include <atomic>
#include <filesystem>
#include <memory>
#include <string>

#include <poll.h>

#include "core/log.hpp"
#include "xpon/log_config/rsh/remote_logger_event.hpp"
#include "xpon/system_wrapper/i_system_wrapper.hpp"

namespace xpon::log_config {

/// Watches the pseudo-terminal directory and reports terminals that open and close. It has no thread:
/// `polling` blocks its caller, and `stop` ends it from another thread.
class PtsPoller {
  public:
    /// Opens the kernel's resources. Throws std::runtime_error with `errno` in the text. After a failed
    /// construction they stay open, because the process ends then.
    PtsPoller(std::filesystem::path const& path,
              std::shared_ptr<system_wrapper::ISystemWrapper> const& system_wrapper,
              std::shared_ptr<core::ILogger> const& logger, UpdateConfigCb&& update_config_cb);
    ~PtsPoller();

    PtsPoller(PtsPoller const&) = delete;
    PtsPoller& operator=(PtsPoller const&) = delete;

    /// The watch loop; call it once per object. Returns success when stopped, `ErrorCApi` when poll or read
    /// fails, or the error of the callback. After an error no terminal is handled any more.
    Result<void> polling();

    /// Ends a running loop at its next wake-up; does nothing if no loop runs. Safe from any thread.
    Result<void> stop();

    /// True while the loop runs. It stays true if the loop ended with an error.
    std::atomic<bool> const& get_polling_flag() const { return polling_flag; }

    /// Replaces the callback. Takes no lock: call it while no event is being handled.
    Result<void> set_update_config_cb(UpdateConfigCb&& callback);

  private:
    Result<void> handle_events();
    Result<void> handle_create(std::string const& name);
    Result<void> handle_close(std::string const& name);
    bool is_still_used(std::string const& terminal);
    Result<void> report(RemoteLoggerAction action, std::string const& name,
                        core::LocatedFormat<std::string const&> text, std::string const& logged_as);

    std::filesystem::path path;
    int inotify_fd = -1;
    int watch_fd = -1;
    std::array<int, 2> pipe_fds{-1, -1}; // read end, write end
    std::array<pollfd, 2> poll_fds{};    // inotify, pipe
    std::atomic<bool> polling_flag = false;
    UpdateConfigCb update_config_cb; // used by the polling thread, replaced without a lock
    std::shared_ptr<system_wrapper::ISystemWrapper> system_wrapper;
    std::shared_ptr<core::ILogger> logger;
};

} // namespace xpon::log_config
