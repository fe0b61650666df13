#include "output.hpp"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include <unistd.h>

#include "core/failure.hpp"

namespace xpon::logctl {

void print(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
}

void tell(std::string_view text) {
    fmt::print(stderr, "logctl: {}\n", text);
}

core::Result<void> flush_output() {
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        return core::fail(core::Error::CommonError, "cannot write the output ({})",
                          std::generic_category().message(errno));
    }
    return core::success();
}

bool wants_colour() {
    char const* const refused = std::getenv("NO_COLOR");
    return (refused == nullptr || *refused == '\0') && isatty(STDOUT_FILENO) == 1;
}

} // namespace xpon::logctl
