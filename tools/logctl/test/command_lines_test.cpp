// Command lines that are wrong or odd, each with everything that it prints.

#include <fmt/format.h>

#include "kit/golden.hpp"
#include "logctl.hpp"

namespace xpon::logctl {
namespace {

/// The blocks of the file, which begin with "$ ", without the comments between them.
std::vector<std::string> blocks_in(std::string const& file) {
    std::vector<std::string> blocks;
    std::istringstream lines{file};
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("$ ")) {
            blocks.emplace_back();
        }
        if (!blocks.empty() && !line.empty() && !line.starts_with("# ")) {
            blocks.back() += line + "\n";
        }
    }
    return blocks;
}

/// What a terminal would show, with the origin of each line.
std::string shown(std::string const& line, Outcome const& outcome) {
    auto text = fmt::format("$ {}\n{}", line, outcome.out);
    std::istringstream errors{outcome.err};
    for (std::string error; std::getline(errors, error);) {
        text += fmt::format("! {}\n", error);
    }
    return text + (outcome.status == 0 ? "" : fmt::format("= {}\n", outcome.status));
}

TEST(CommandLines, AreAnsweredAsTheFileSays) {
    Logctl const logctl;
    EXPECT_EQ(logctl({"reset", "*"}), silence);
    auto const& scratch = logctl.scratch;
    auto const run = [&](std::string const& line) {
        std::filesystem::remove(scratch / "out");
        std::filesystem::remove(scratch / "err");
        constexpr char const* script = R"sh(
cd "$1" || exit 99
logctl() { command "$LOGCTL" --database db "$@"; }
eval "$2" > out 2> err
)sh";
        test::ChildProcess shell{{.argv = {"bash", "-c", script, "bash", scratch.path().string(), line},
                                  .environment = {"LOGCTL=" LOGCTL_PROGRAM, "COLUMNS="}}};
        auto const status = shell.wait();
        return Outcome{status.value_or(-1), test::read_file(scratch / "out"),
                       test::read_file(scratch / "err")};
    };
    auto const blocks = blocks_in(test::golden("logctl/command_lines.txt"));
    EXPECT_GE(blocks.size(), 60U);
    for (auto const& block : blocks) {
        auto const line = block.substr(2, block.find('\n') - 2);
        EXPECT_EQ(shown(line, run(line)), block);
    }
}

} // namespace
} // namespace xpon::logctl
