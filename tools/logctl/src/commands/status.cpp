#include <memory>

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "commands/command.hpp"
#include "core/failure.hpp"
#include "output.hpp"
#include "status/report.hpp"
#include "waiting.hpp"

namespace xpon::logctl {

namespace {

struct Options {
    bool json = false;
    bool watch = false;
};

/// What paints the text over the one before, line by line: nothing is cleared first, so nothing flickers.
/// What the screen has no room for is left out.
std::string painted(std::string_view text) {
    winsize size{};
    ioctl(STDOUT_FILENO, TIOCGWINSZ, &size);
    std::string paint = "\x1b[H\x1b[?7l"; // to the top, cutting long lines
    for (int line = 1; !text.empty() && (size.ws_row == 0 || line < size.ws_row); ++line) {
        auto const end = text.find('\n');
        paint += text.substr(0, end);
        paint += "\x1b[K\n";
        text.remove_prefix(end + 1);
    }
    return paint + "\x1b[J\x1b[?7h";
}

core::Result<int> watch(Context const& context) {
    if (isatty(STDOUT_FILENO) == 0) {
        return core::fail(core::Error::InvalidInputArg,
                          "--watch needs a terminal; without one: logctl status");
    }
    auto const stop = stop_signals();
    std::string shown;
    for (;;) {
        auto const report = look_until_settled(context);
        if (auto text = painted(to_text(report, screen())); text != shown) {
            print(text);
            OUTCOME_TRY(flush_output());
            shown = std::move(text);
        }
        if (first_readable({stop.get()}, std::chrono::steady_clock::now() + std::chrono::seconds{1})) {
            return report.in_step() ? 0 : 1;
        }
    }
}

core::Result<int> status(Context const& context, Options const& options) {
    if (options.watch) {
        return watch(context);
    }
    auto const report = look_until_settled(context);
    print(options.json ? to_json(report) : to_text(report, screen()));
    return report.in_step() ? 0 : 1;
}

} // namespace

Action status_command(Arguments& arguments) {
    auto const options = std::make_shared<Options>();
    arguments.add({"--json", "Print one JSON object"}, options->json);
    arguments.add({"--watch", "Keep it on the terminal until interrupted, and repaint it when it changes"},
                  options->watch);
    return [options](Context const& context) { return status(context, *options); };
}

} // namespace xpon::logctl
