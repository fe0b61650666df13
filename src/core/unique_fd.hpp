#pragma once

#include <utility>

#include <unistd.h>

namespace xpon::core {

/// Owns one file descriptor and closes it; -1 means no descriptor.
class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int descriptor)
      : fd{descriptor} {}
    UniqueFd(UniqueFd&& other) noexcept
      : fd{std::exchange(other.fd, -1)} {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) {
            reset(std::exchange(other.fd, -1));
        }
        return *this;
    }
    ~UniqueFd() { reset(); }

    int get() const { return fd; }
    explicit operator bool() const { return fd >= 0; }

    void reset(int descriptor = -1) {
        if (fd >= 0) {
            ::close(fd);
        }
        fd = descriptor;
    }

  private:
    int fd = -1;
};

} // namespace xpon::core
