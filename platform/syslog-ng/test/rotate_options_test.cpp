#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>

#include "kit/child_process.hpp"
#include "kit/golden.hpp"
#include "kit/scratch_folder.hpp"

namespace xpon::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;

constexpr auto if_larger_usage =
    "Error parsing rotate_if_larger option, expected rotate_if_larger(SIZE), SIZE a number of bytes above 0";
constexpr auto program_usage = R"(Error parsing rotate_program option, expected rotate_program("COMMAND"))";

/// Stock syslog-ng, with this build's module in its module folder.
struct RotateOptions : testing::Test {
    std::optional<int> load(std::string const& text, std::vector<std::string> const& options = {}) {
        write_file(folder / "text", text);
        std::vector<std::string> argv{"syslog-ng", "--syntax-only", "--cfgfile", folder / "text"};
        argv.insert(argv.end(), options.begin(), options.end());
        return ChildProcess{{.argv = argv, .output = folder / "output"}}.wait();
    }
    std::string output() const { return read_file(folder / "output"); }

    ScratchFolder folder;
};

TEST_F(RotateOptions, MakeStockSyslogNgAcceptTheGeneratedText) {
    for (auto const* name : {"defaults", "two_receivers_three_shells", "everything"}) {
        EXPECT_EQ(load(golden(fmt::format("syslog_ng/{}.conf", name))), 0) << name << '\n' << output();
    }
}

TEST_F(RotateOptions, AreTheOneThingThatStockSyslogNgRefusesInTheGeneratedText) {
    auto const stock = folder / "stock";
    std::filesystem::create_directory(stock);
    for (auto const& module : std::filesystem::directory_iterator{SYSLOG_NG_MODULE_DIR}) {
        if (module.path().filename() != "librotate-options.so") {
            std::filesystem::create_symlink(module.path(), stock / module.path().filename());
        }
    }
    auto text = golden("syslog_ng/defaults.conf");
    EXPECT_EQ(load(text, {"--module-path", stock}), 1);
    EXPECT_THAT(output(), AllOf(HasSubstr("syntax error, unexpected LL_IDENTIFIER"),
                                HasSubstr("---->     rotate_if_larger(`file_size`);")));

    for (auto const* option : {"    rotate_if_larger(", "    rotate_program("}) {
        auto const start = text.find(option);
        text.erase(start, text.find('\n', start) + 1 - start);
    }
    EXPECT_EQ(load(text, {"--module-path", stock}), 0) << output();
}

TEST_F(RotateOptions, StopTheLoadWhereTheirArgumentIsWrong) {
    struct Case {
        char const* option;
        char const* message; // nothing: it is right
    };
    for (auto const& [option, message] : {
             Case{"rotate_if_larger(1)", nullptr},
             Case{"rotate_if_larger(1073741824)", nullptr},
             Case{"rotate_if_larger(`size`)", nullptr},
             Case{"rotate_if_larger()", if_larger_usage},
             Case{"rotate_if_larger", if_larger_usage},
             Case{"rotate_if_larger(0)", if_larger_usage},
             Case{"rotate_if_larger(-1)", if_larger_usage},
             Case{"rotate_if_larger(\"1\")", if_larger_usage},
             Case{"rotate_if_larger(1 2)", if_larger_usage},
             Case{"rotate_if_larger(1", if_larger_usage},
             Case{"rotate_program(\"\")", nullptr},
             Case{"rotate_program(\"/bin/program 5 `size`\")", nullptr},
             Case{"rotate_program()", program_usage},
             Case{"rotate_program", program_usage},
             Case{"rotate_program(5)", program_usage},
             Case{"rotate_program(\"a\" \"b\")", program_usage},
             Case{"rotate_program(\"a\"", program_usage},
         }) {
        auto const status = load(fmt::format(
            "@version: 3.20\n@define size \"65536\"\noptions {{ {}; suppress(10); }};\n", option));
        EXPECT_EQ(status, message == nullptr ? 0 : 1) << option << '\n' << output();
        if (message != nullptr) {
            EXPECT_THAT(output(), HasSubstr(message)) << option;
        }
        std::filesystem::remove(folder / "output");
    }
}

} // namespace
} // namespace xpon::test
