#include <string>

#include <gmock/gmock.h>

#include "kit/child_process.hpp"
#include "kit/scratch_folder.hpp"

namespace xpon::test {
namespace {

using testing::HasSubstr;

/// Runs bench/growth with a recorded start of 1000 instructions and a recorded text of 200.
struct Growth : testing::Test {
    std::optional<int> compare(std::string const& measured) {
        write_file(folder / "document.md",
                   "# Performance\n\n"
                   "| task | figure | floor or peer | ratio | goal | p99 |\n"
                   "|---|---|---|---|---|---|\n"
                   "| FSM text; floor: a plain loop | 164 | 91 | 1.80 | 2 | |\n"
                   "| instructions for the FSM text | 200 |  | 1.77 per byte | report | |\n"
                   "| instructions for a start and a stop | 1000 |  |  | report | |\n");
        write_file(folder / "table.tsv", "FSM text; floor: a plain loop\t900\t91\t9.90\t2\t\n" + measured);
        return ChildProcess{{.argv = {XPON_BENCH "/growth", folder / "table.tsv", folder / "document.md"},
                             .output = folder / "output"}}
            .wait();
    }
    std::string output() const { return read_file(folder / "output"); }

    ScratchFolder folder;
};

TEST_F(Growth, OfFivePercentIsLetPass) {
    EXPECT_EQ(compare("instructions for the FSM text\t100\t\t1 per byte\treport\t\n"
                      "instructions for a start and a stop\t1050\t\t\treport\t\n"),
              0);
    EXPECT_EQ(output(), "instructions for the FSM text: 100, recorded 200, -50.0 %\n"
                        "instructions for a start and a stop: 1050, recorded 1000, +5.0 %\n");
}

TEST_F(Growth, AboveFivePercentIsNamed) {
    EXPECT_EQ(compare("instructions for the FSM text\t200\t\t1 per byte\treport\t\n"
                      "instructions for a start and a stop\t1051\t\t\treport\t\n"),
              1);
    EXPECT_THAT(output(),
                HasSubstr("instructions for a start and a stop: 1051, recorded 1000, +5.1 %: GROWN\n"));
}

TEST_F(Growth, OfATaskThatWasNotMeasuredBeforeIsNone) {
    EXPECT_EQ(compare("instructions for a start and a stop\t1000\t\t\treport\t\n"
                      "instructions for a change\t5\t\t\treport\t\n"),
              0);
    EXPECT_THAT(output(), HasSubstr("instructions for a change: 5, not recorded yet\n"));
}

TEST_F(Growth, IsAnErrorIfNothingCanBeCompared) {
    EXPECT_EQ(compare(""), 1);
    EXPECT_EQ(output(), "no instructions to compare\n");
}

} // namespace
} // namespace xpon::test
