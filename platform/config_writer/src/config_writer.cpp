#include "xpon/config_writer/config_writer.hpp"

#include <string_view>
#include <system_error>
#include <utility>

#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/failure.hpp"
#include "core/uninterrupted.hpp"

namespace xpon::config_writer {

namespace {

using core::Error;
using core::ErrorPayload;
using core::Result;
using core::success;
using core::uninterrupted;

constexpr mode_t file_mode = 0644;

/// The new file on its way to the target's name; what has not got there is removed.
class Replacement {
  public:
    Replacement(std::filesystem::path const& target_file, std::filesystem::path const& temporary_file)
      : target{target_file}
      , temporary{temporary_file} {}
    ~Replacement() {
        if (fd >= 0) {
            ::close(fd);
        }
        if (exists) {
            ::unlink(temporary.c_str());
        }
    }
    Replacement(Replacement const&) = delete;
    Replacement& operator=(Replacement const&) = delete;

    Result<void> create() {
        if (::unlink(temporary.c_str()) != 0 && errno != ENOENT) {
            return failed_to("remove the leftover");
        }
        auto constexpr flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
        fd = uninterrupted([this] { return ::open(temporary.c_str(), flags, file_mode); });
        if (fd < 0) {
            return failed_to("create");
        }
        exists = true;
        // The mode given to open() is cut by the process's umask.
        if (::fchmod(fd, file_mode) != 0) {
            return failed_to("set the mode of");
        }
        return success();
    }

    Result<void> fill(std::string_view text) {
        while (!text.empty()) {
            auto const size = uninterrupted([&] { return ::write(fd, text.data(), text.size()); });
            if (size < 0) {
                return failed_to("write");
            }
            text.remove_prefix(static_cast<std::size_t>(size));
        }
        if (uninterrupted([this] { return ::fdatasync(fd); }) != 0) {
            return failed_to("bring to the disk");
        }
        if (::close(std::exchange(fd, -1)) != 0) {
            return failed_to("close");
        }
        return success();
    }

    Result<void> take_the_place() {
        if (::rename(temporary.c_str(), target.c_str()) != 0) {
            return failed_to("rename");
        }
        exists = false;
        return success();
    }

  private:
    ErrorPayload failed_to(std::string_view step,
                           std::source_location where = std::source_location::current()) const {
        auto const reason = std::generic_category().message(errno);
        return ErrorPayload{Error::CommonError,
                            fmt::format("Cannot write \"{}\": failed to {} \"{}\": {}", target.string(), step,
                                        temporary.string(), reason),
                            where};
    }

    std::filesystem::path const& target;
    std::filesystem::path const& temporary;
    int fd = -1;
    bool exists = false;
};

} // namespace

ConfigWriter::ConfigWriter(std::filesystem::path target_file)
  : target{std::move(target_file)}
  , temporary{target.parent_path() / ("." + target.filename().string() + ".tmp")} {}

Result<void> ConfigWriter::write(std::string const& text) {
    Replacement replacement{target, temporary};
    OUTCOME_TRY(replacement.create());
    OUTCOME_TRY(replacement.fill(text));
    return replacement.take_the_place();
}

} // namespace xpon::config_writer
