#pragma once

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <termios.h>

#include "core/unique_fd.hpp"
#include "kit/wait_readable.hpp"

namespace xpon::test {

/// A pseudo-terminal with an open slave, as a remote login has one.
class Terminal {
  public:
    Terminal()
      : master{posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)} {
        if (!master || grantpt(master.get()) != 0 || unlockpt(master.get()) != 0) {
            throw std::system_error{errno, std::generic_category(), "pseudo-terminal"};
        }
        name = ptsname(master.get());
        open_slave();
    }

    /// N of /dev/pts/N.
    std::string number() const { return name.substr(name.rfind('/') + 1); }
    std::string const& path() const { return name; }

    void open_slave() {
        slave.reset(open(name.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
        if (!slave) {
            throw std::system_error{errno, std::generic_category(), name};
        }
    }
    void close_slave() { slave.reset(); }

    /// Drops what is on its way to the screen. There is room again, but whoever waits for it is not told.
    void drop_output() const { tcflush(slave.get(), TCOFLUSH); }

    /// Closes the terminal so that its node is gone before the close event.
    void hang_up() {
        master.reset();
        slave.reset();
    }

    /// True once the text was shown on the terminal; false at the deadline.
    bool wait_for(std::string const& text, std::chrono::milliseconds deadline = default_deadline) {
        auto const end = std::chrono::steady_clock::now() + deadline;
        while (shown.find(text) == std::string::npos) {
            if (!wait_readable(master.get(), time_left(end))) {
                return false;
            }
            char buffer[4096];
            auto const size = read(master.get(), buffer, sizeof buffer);
            if (size > 0) {
                shown.append(buffer, static_cast<std::size_t>(size));
            }
        }
        return true;
    }

    std::string const& received() const { return shown; }

  private:
    core::UniqueFd master;
    core::UniqueFd slave;
    std::string name;
    std::string shown;
};

} // namespace xpon::test
