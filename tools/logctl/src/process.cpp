#include "process.hpp"

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include "core/failure.hpp"
#include "core/process.hpp"
#include "core/reason.hpp"
#include "core/unique_fd.hpp"
#include "waiting.hpp"

namespace xpon::logctl {

namespace {

using core::Error;
using core::fail;

constexpr std::array folders{"/usr/sbin", "/usr/bin", "/sbin", "/bin"};

std::string contents(int fd) {
    std::string text;
    std::array<char, 65536> buffer{};
    lseek(fd, 0, SEEK_SET);
    for (ssize_t length = 0; (length = read(fd, buffer.data(), buffer.size())) > 0;) {
        text.append(buffer.data(), static_cast<std::size_t>(length));
    }
    return text;
}

/// Files in memory instead of pipes: whatever the program writes, nobody waits for a reader.
struct Streams {
    core::UniqueFd in{memfd_create("stdin", MFD_CLOEXEC)};
    core::UniqueFd out{memfd_create("stdout", MFD_CLOEXEC)};
    core::UniqueFd err{memfd_create("stderr", MFD_CLOEXEC)};

    bool fill(std::string_view input) const {
        return in && out && err && write(in.get(), input.data(), input.size()) == std::ssize(input) &&
               lseek(in.get(), 0, SEEK_SET) == 0;
    }
};

} // namespace

core::Result<std::string> find_program(std::string const& name) {
    for (std::filesystem::path const folder : folders) {
        if (auto path = folder / name; access(path.c_str(), X_OK) == 0) {
            return path.string();
        }
    }
    return fail(Error::CommonError, "{} is missing: it is in none of {}", name, fmt::join(folders, ", "));
}

core::Result<Finished> run_program(std::vector<std::string> const& argv, std::string_view input,
                                   std::chrono::milliseconds limit) {
    OUTCOME_TRY(program, find_program(argv.front()));
    Streams const streams;
    if (!streams.fill(input)) {
        return fail(Error::CommonError, "{}: no memory for its input and output ({})", argv.front(),
                    core::reason_of(errno));
    }
    core::Program wanted{.argv = argv,
                         .environment = {fmt::format("PATH={}", fmt::join(folders, ":"))},
                         .streams = {streams.in.get(), streams.out.get(), streams.err.get()},
                         .own_group = true};
    wanted.argv.front() = program;
    pid_t pid = -1;
    if (int const error = core::start(std::move(wanted), pid); error != 0) {
        return fail(Error::CommonError, "{}: cannot be run ({})", argv.front(), core::reason_of(error));
    }
    auto const end = core::open_pidfd(pid);
    bool const ended = first_readable({end.get()}, std::chrono::steady_clock::now() + limit).has_value();
    if (!ended) {
        kill(-pid, SIGKILL);
    }
    int const status = core::reap(pid);
    if (!ended) {
        return fail(Error::CommonError, "{}: does not answer within {} s", argv.front(),
                    std::chrono::duration<double>{limit}.count());
    }
    if (status < 0) {
        return fail(Error::CommonError, "{}: its exit status is lost ({})", argv.front(),
                    core::reason_of(errno));
    }
    return Finished{status, contents(streams.out.get()), contents(streams.err.get())};
}

} // namespace xpon::logctl
