#include "output.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <system_error>

#include <fmt/chrono.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "core/failure.hpp"
#include "number_in.hpp"

namespace xpon::logctl {

void print(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
}

void tell(std::string_view text) {
    std::fflush(stdout); // what it says may be about what was printed; `flush_output` reports a failure
    fmt::print(stderr, "logctl: {}\n", text);
}

std::string text_of(core::ErrorPayload const& error) {
    return std::string{error.info ? error.info->text() : core::to_string(error.error)};
}

core::Result<void> flush_output() {
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        return core::fail(core::Error::CommonError, "cannot write the output ({})",
                          std::generic_category().message(errno));
    }
    return core::success();
}

std::string utc(std::int64_t time) {
    constexpr std::int64_t end_of_9999 = 253402300799;
    auto const shown = std::clamp<std::int64_t>(time, 0, end_of_9999);
    return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(static_cast<std::time_t>(shown)));
}

std::size_t terminal_width() {
    if (char const* const wanted = std::getenv("COLUMNS"); wanted != nullptr) {
        if (auto const columns = number_in<std::size_t>(wanted); columns && *columns > 0) {
            return *columns;
        }
    }
    winsize size{};
    constexpr std::size_t usual = 80;
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : usual;
}

Screen screen() {
    if (isatty(STDOUT_FILENO) == 0) {
        return {};
    }
    char const* const refused = std::getenv("NO_COLOR");
    return {refused == nullptr || *refused == '\0', terminal_width()};
}

} // namespace xpon::logctl
