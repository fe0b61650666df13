#pragma once

#include <cerrno>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/unique_fd.hpp"
#include "kit/wait_readable.hpp"
#include "kit/wait_until.hpp"

namespace xpon::test {

/// A named pipe at which the test and a program wait for each other.
class Fifo {
  public:
    /// Makes it at `path`, which must not exist yet. Throws std::system_error.
    explicit Fifo(std::filesystem::path path)
      : where{std::move(path)} {
        if (mkfifo(where.c_str(), S_IRUSR | S_IWUSR) != 0) {
            throw std::system_error{errno, std::generic_category(), where.string()};
        }
    }

    std::string path() const { return where.string(); }

    /// Waits until a program has it open for reading, or waits to have. The writing end, at whose close the
    /// program has read everything; an empty one at the deadline.
    core::UniqueFd wait_for_reader() const {
        core::UniqueFd writing;
        wait_until([&] {
            writing.reset(open(where.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
            return bool{writing};
        });
        return writing;
    }

    /// Waits until a program has opened it for writing, and has written or closed it again; false at the
    /// deadline.
    bool wait_for_writer() const {
        core::UniqueFd const reading{open(where.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)};
        return reading && wait_readable(reading.get());
    }

    /// Waits for a reader as above, and gives it the text, which must fit into a pipe; false if it cannot.
    bool feed(std::string_view text) const {
        auto const writing = wait_for_reader();
        return writing && write(writing.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
    }

  private:
    std::filesystem::path where;
};

} // namespace xpon::test
