// What the program shows on terminals that are too narrow.

#include <algorithm>
#include <array>
#include <cstdint>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/ioctl.h>

#include "core/unique_fd.hpp"
#include "kit/wait_readable.hpp"
#include "logctl.hpp"

namespace xpon::logctl {
namespace {

using testing::HasSubstr;

/// What the program shows on a terminal of this width.
std::string shown(Logctl const& logctl, std::uint16_t columns, Logctl::Words const& words) {
    winsize const size{.ws_row = 1000, .ws_col = columns, .ws_xpixel = 0, .ws_ypixel = 0};
    int controller = -1;
    int terminal = -1;
    std::array<char, 64> name{};
    EXPECT_EQ(openpty(&controller, &terminal, name.data(), nullptr, &size), 0);
    core::UniqueFd const ours{controller};
    core::UniqueFd theirs{terminal};
    Logctl::Words argv{LOGCTL_PROGRAM, "--database", logctl.database.string()};
    argv.insert(argv.end(), words.begin(), words.end());
    test::ChildProcess process{
        {.argv = argv, .environment = {"NO_COLOR=1", "COLUMNS="}, .output = name.data()}};
    std::string text;
    std::array<char, 4096> buffer{};
    // It may wait for its output to be read. After its end the terminal is closed, and reading fails.
    bool ended = false;
    for (ssize_t length = 1; length > 0;) {
        if (!ended && process.wait(std::chrono::milliseconds{0})) {
            ended = true;
            theirs.reset();
        }
        if (ended || test::wait_readable(ours.get(), std::chrono::milliseconds{20})) {
            length = read(ours.get(), buffer.data(), buffer.size());
            text.append(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
        }
    }
    std::erase(text, '\r'); // the terminal's own
    return text;
}

/// In columns: "…" is one of three bytes.
std::size_t widest(std::string const& text) {
    std::size_t most = 0;
    std::istringstream lines{text};
    for (std::string line; std::getline(lines, line);) {
        auto const first_of_letters = [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; };
        most = std::max(most, static_cast<std::size_t>(std::ranges::count_if(line, first_of_letters)));
    }
    return most;
}

class NarrowTerminal : public testing::Test {
  protected:
    void SetUp() override {
        EXPECT_EQ(logctl({"set", "-m", "a comment that says why all of this was changed",
                          "syslog.remote.1.address=192.0.2.7", "module.cli.*=debug",
                          "module.fsm_pon.ont.3.1,3,5,7,9,11,13,15,17,19,21,23,25,27,29,31=debug"}),
                  silence);
        EXPECT_EQ(logctl({"commit-confirm", "60", "module.snmp.*=debug", "module.switch.IPC=info",
                          "module.netserve.*=debug"})
                      .status,
                  0);
    }
    void TearDown() override { EXPECT_EQ(logctl({"abort"}).status, 0); }

    Logctl logctl;
};

TEST_F(NarrowTerminal, HasRoomForEveryTable) {
    Logctl::Words const tables[] = {{"show"},
                                    {"show", "--map"},
                                    {"modules"},
                                    {"modules", "cli"},
                                    {"modules", "fsm_pon"},
                                    {"history"},
                                    {"history", "--full"},
                                    {"trials"},
                                    {"compare"},
                                    {"reset", "--dry-run", "*"},
                                    {"help"},
                                    {"help", "set"},
                                    {"help", "commit-confirm"}};
    for (auto const& words : tables) {
        for (auto const columns : {std::uint16_t{80}, std::uint16_t{60}}) {
            auto const text = shown(logctl, columns, words);
            EXPECT_GT(text.size(), 100U) << text;
            EXPECT_LE(widest(text), columns) << text;
        }
    }
}

TEST_F(NarrowTerminal, ShortensTheWidestColumnsAndBreaksLongLines) {
    auto const modules = shown(logctl, 60, {"modules"});
    EXPECT_THAT(modules, HasSubstr("\n16     switch "));
    EXPECT_THAT(modules, HasSubstr("…\n"));
    EXPECT_THAT(
        shown(logctl, 60, {"compare"}),
        HasSubstr(
            "\nmodule.fsm_pon.ont.3.1,3,5,7,9,11,13,15,17,19,21,23,25,2\n    7,29,31: notice -> debug\n"));
}

TEST_F(NarrowTerminal, LosesNoState) {
    EXPECT_THAT(shown(logctl, 50, {"status"}), HasSubstr("\ndatabase\n    readable\n"));
    EXPECT_THAT(shown(logctl, 30, {"modules", "cli"}), HasSubstr("name    cli\n"));
}

TEST_F(NarrowTerminal, PutsWhatIsLongBelow) {
    EXPECT_THAT(
        shown(logctl, 60, {"history"}),
        HasSubstr("\n    syslog.remote.1.address: 0.0.0.0 -> 192.0.2.7;\n    module.fsm_pon.ont.3.1,3,5,"));
    EXPECT_THAT(
        shown(logctl, 60, {"trials"}),
        HasSubstr("\n    module.netserve.*=notice module.snmp.*=notice\n    module.switch.IPC=notice\n"));
}

TEST_F(NarrowTerminal, IsNoMatterWhereTheOutputIsNone) {
    auto const modules = logctl({"modules"}).out;
    EXPECT_GT(widest(modules), 100U);
    EXPECT_THAT(modules, testing::Not(HasSubstr("…")));
}

TEST_F(NarrowTerminal, HelpFollowsColumns) {
    test::ChildProcess process{{.argv = {LOGCTL_PROGRAM, "help", "set"},
                                .environment = {"COLUMNS=50"},
                                .output = logctl.scratch / "help"}};
    EXPECT_EQ(process.wait(), 0);
    EXPECT_LE(widest(test::read_file(logctl.scratch / "help")), 50U);
}

} // namespace
} // namespace xpon::logctl
