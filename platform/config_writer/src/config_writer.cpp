#include "xpon/config_writer/config_writer.hpp"

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/failure.hpp"
#include "core/reason.hpp"
#include "core/uninterrupted.hpp"
#include "core/unique_fd.hpp"

namespace xpon::config_writer {

namespace {

using core::Error;
using core::ErrorPayload;
using core::Result;
using core::success;
using core::uninterrupted;

namespace fs = std::filesystem;

constexpr mode_t file_mode = 0644;

/// Temporary files of the target "X" have the name ".X.tmp", a dot, and in the place of each of these a
/// letter or digit.
constexpr std::string_view random_end = ".XXXXXX";

std::string temporary_name(fs::path const& target) {
    return "." + target.filename().string() + ".tmp";
}

/// Whether a file of this name is a temporary. Earlier versions used the name without its end.
bool is_temporary(std::string_view name, std::string_view beginning) {
    if (!name.starts_with(beginning)) {
        return false;
    }
    auto const end = name.substr(beginning.size());
    return end.empty() || (end.size() == random_end.size() && end.front() == '.' &&
                           std::all_of(end.begin() + 1, end.end(),
                                       [](unsigned char letter) { return std::isalnum(letter) != 0; }));
}

/// A running writer holds the lock of its temporary file until that has the target's name. The kernel releases
/// the lock when the process is killed.
bool lock(int fd) {
    return ::flock(fd, LOCK_EX | LOCK_NB) == 0;
}

bool is_removed(int fd) {
    struct stat state{};
    return ::fstat(fd, &state) == 0 && state.st_nlink == 0;
}

/// Links and folders cannot be opened like this; they are not temporary files.
void remove_unless_in_use(fs::path const& temporary) {
    core::UniqueFd const file{::open(temporary.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)};
    if (file && lock(file.get()) && !is_removed(file.get())) {
        ::unlink(temporary.c_str());
    }
}

/// Removes what killed writers of the target have left. What cannot be removed does no harm.
void remove_leftovers(fs::path const& target) {
    auto const folder = target.parent_path() / ".";
    // Not a directory_iterator: making a path of each name took 11 % of the instructions of a start.
    std::unique_ptr<DIR, int (*)(DIR*)> const entries{::opendir(folder.c_str()), ::closedir};
    if (!entries) {
        return;
    }
    auto const beginning = temporary_name(target);
    while (auto const* const entry = ::readdir(entries.get())) {
        if (is_temporary(entry->d_name, beginning)) {
            remove_unless_in_use(folder / entry->d_name);
        }
    }
}

/// Whether the target already is what a write would make of it. What cannot be read is written anew.
bool is_as_wanted(fs::path const& target, std::string_view text) {
    core::UniqueFd const file{::open(target.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)};
    struct stat state{};
    if (!file || ::fstat(file.get(), &state) != 0 || state.st_mode != (S_IFREG | file_mode) ||
        state.st_uid != ::geteuid() || state.st_nlink != 1 ||
        std::cmp_not_equal(state.st_size, text.size())) {
        return false;
    }
    std::array<char, 16384> part;
    ssize_t size = 0;
    while ((size = uninterrupted([&] { return ::read(file.get(), part.data(), part.size()); })) > 0) {
        std::string_view const there{part.data(), static_cast<std::size_t>(size)};
        if (!text.starts_with(there)) {
            return false;
        }
        text.remove_prefix(there.size());
    }
    return size == 0 && text.empty();
}

/// The temporary file that is to become the target; removed unless it did.
class Replacement {
  public:
    explicit Replacement(fs::path const& target_file)
      : target{target_file}
      , pattern{target.parent_path() / (temporary_name(target) += random_end)} {}
    ~Replacement() { remove(); }
    Replacement(Replacement const&) = delete;
    Replacement& operator=(Replacement const&) = delete;

    Result<void> create() {
        do {
            remove();
            file.reset(uninterrupted([this] {
                temporary = pattern;
                return ::mkostemp(temporary.data(), O_CLOEXEC);
            }));
            if (!file) {
                return failed_to("create");
            }
            exists = true;
        } while (was_taken_for_a_leftover());
        if (::fchmod(file.get(), file_mode) != 0) {
            return failed_to("set the mode of");
        }
        return success();
    }

    Result<void> fill(std::string_view text) const {
        while (!text.empty()) {
            auto const size = uninterrupted([&] { return ::write(file.get(), text.data(), text.size()); });
            if (size < 0) {
                return failed_to("write");
            }
            text.remove_prefix(static_cast<std::size_t>(size));
        }
        if (uninterrupted([this] { return ::fdatasync(file.get()); }) != 0) {
            return failed_to("bring to the disk");
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
    /// Possible until it is locked. A file system without locks does not prevent writing.
    bool was_taken_for_a_leftover() const {
        return (!lock(file.get()) && errno == EWOULDBLOCK) || is_removed(file.get());
    }

    void remove() {
        if (std::exchange(exists, false)) {
            ::unlink(temporary.c_str());
        }
    }

    /// Without the temporary's name, so that one reason always has one text.
    ErrorPayload failed_to(std::string_view step,
                           std::source_location where = std::source_location::current()) const {
        auto const reason = core::reason_of(errno);
        return ErrorPayload{Error::CommonError,
                            fmt::format("Cannot write \"{}\": failed to {} its temporary file: {}",
                                        target.string(), step, reason),
                            where};
    }

    fs::path const& target;
    std::string pattern;
    std::string temporary;
    core::UniqueFd file; // closed last: with it goes the lock
    bool exists = false;
};

} // namespace

ConfigWriter::ConfigWriter(std::filesystem::path target_file)
  : target{std::move(target_file)} {}

Result<void> ConfigWriter::write(std::string const& text) {
    remove_leftovers(target);
    if (is_as_wanted(target, text)) {
        return success();
    }
    Replacement replacement{target};
    OUTCOME_TRY(replacement.create());
    OUTCOME_TRY(replacement.fill(text));
    return replacement.take_the_place();
}

} // namespace xpon::config_writer
