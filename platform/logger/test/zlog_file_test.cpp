#include "zlog_file.hpp"

#include <gmock/gmock.h>

#include "zlog_texts.hpp"

namespace xpon::logger {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

std::string line_of(ZlogFormat const& format) {
    spdlog::memory_buf_t line;
    format.clone()->format({spdlog::source_loc{"file.cpp", 7, "run"}, "CAT", spdlog::level::info, "text"},
                           line);
    return {line.data(), line.size()};
}

/// Each level's line, "-" where the level is off.
std::vector<std::string> lines_of(ZlogFile const& file, std::string const& category) {
    auto const found = file.categories.find(category);
    if (found == file.categories.end()) {
        return {};
    }
    std::vector<std::string> lines;
    for (auto const& format : found->second) {
        lines.push_back(format ? line_of(*format) : "-");
    }
    return lines;
}

std::vector<std::string> names_of_categories(ZlogFile const& file) {
    std::vector<std::string> names;
    for (auto const& [name, levels] : file.categories) {
        names.push_back(name);
    }
    return names;
}

std::vector<std::string> problems_of(std::string_view text) {
    std::vector<std::string> problems;
    for (auto const& [line, what] : read_zlog_file(text).problems) {
        problems.push_back(std::to_string(line) + ": " + what);
    }
    return problems;
}

TEST(ZlogFile, TheFilesOfThisSystemAreReadWithoutAProblem) {
    auto const file = read_zlog_file(zlog_header + zlog_rules("LOG-CFG", 5) + zlog_rules("LOG-CFG_IPC", 0) +
                                     zlog_rules("PON-PORT_1", 3) + zlog_rules("ONT_1/1", 1) +
                                     zlog_rules("API-SVC", 2) + zlog_rules("DNA_IGMP", 4));
    EXPECT_THAT(file.problems, IsEmpty());
    EXPECT_THAT(names_of_categories(file),
                ElementsAre("API-SVC", "DNA_IGMP", "LOG-CFG", "LOG-CFG_IPC", "ONT_1/1", "PON-PORT_1"));
}

TEST(ZlogFile, AHeaderAloneIsAWholeFileWithoutRules) {
    auto const file = read_zlog_file(zlog_header);
    EXPECT_THAT(file.problems, IsEmpty());
    EXPECT_THAT(file.categories, IsEmpty());
}

TEST(ZlogFile, ARuleHasItsFormatOrTheDefaultOfTheFile) {
    auto const file = read_zlog_file("[global]\n"
                                     "default format = \"default %m\"\n"
                                     "[formats]\n"
                                     "for_info = \"info %m\"\n"
                                     "for_fatal = \"fatal \"%m\"\"\n"
                                     "[rules]\n" +
                                     zlog_rules("DNA", 5));
    EXPECT_THAT(file.problems, IsEmpty());
    EXPECT_THAT(lines_of(file, "DNA"), ElementsAre("default text", "info text", "info text", "info text",
                                                   "default text", "fatal \"text\""));
    EXPECT_EQ(line_of(*file.default_format), "default text");
}

TEST(ZlogFile, WithoutADefaultFormatTheBuiltInOneHolds) {
    auto const file = read_zlog_file("[rules]\nDNA.=DEBUG >syslog, LOG_LOCAL0;\n");
    EXPECT_THAT(file.problems, IsEmpty());
    EXPECT_EQ(file.default_format, ZlogFormat::built_in());
    EXPECT_EQ(file.categories.at("DNA").at(0), ZlogFormat::built_in());
}

TEST(ZlogFile, TheLastRuleOfACategoryAndLevelDecides) {
    struct Case {
        char const* what;
        char const* text;
        std::vector<std::string> lines_of_x;
    };
    Case const cases[] = {
        {"only the levels with a rule are on",
         "[formats]\nf = \"%m\"\n[rules]\nX.=NOTICE >syslog, LOG_LOCAL0; f\nY.=DEBUG >syslog, LOG_LOCAL0; f\n"
         "X.=FATAL >syslog, LOG_LOCAL0; f\n",
         {"-", "-", "text", "-", "-", "text"}},
        {"the later of two equal rules applies",
         "[formats]\na = \"a\"\nb = \"b\"\n[rules]\nX.=INFO >syslog, LOG_LOCAL0; a\n"
         "X.=INFO >syslog, LOG_LOCAL0; b\n",
         {"-", "b", "-", "-", "-", "-"}},
        {"comments, blank lines and indentation mean nothing",
         "# a comment = \"%m\"\n\n \t \n  [formats]\t\n\t# another one\n  f   =\t\"%m\"  "
         "\n[rules]\n#X.=INFO\n"
         "  X.=INFO   >syslog, LOG_LOCAL0;f  \n",
         {"-", "text", "-", "-", "-", "-"}},
        {"the last line needs no end",
         "[formats]\nf = \"%m\"\n[rules]\nX.=INFO >syslog, LOG_LOCAL0; f",
         {"-", "text", "-", "-", "-", "-"}},
    };
    for (auto const& [what, text, lines_of_x] : cases) {
        auto const file = read_zlog_file(text);
        EXPECT_THAT(file.problems, IsEmpty()) << what;
        EXPECT_EQ(lines_of(file, "X"), lines_of_x) << what;
    }
}

TEST(ZlogFile, ACategoryMayHoldAnyCharacterButBlanks) {
    for (auto const* const name :
         {"ONT_1/1", "PON-PORT_1", "a.b", "a.=b", "=", ".", ">syslog,", "x;\"y\"", "[x", "\xc3\xa4", "%c"}) {
        auto const file =
            read_zlog_file("[rules]\n" + zlog_rules(name, 1).substr(zlog_rules(name, 0).size()));
        EXPECT_THAT(file.problems, IsEmpty()) << name;
        EXPECT_THAT(names_of_categories(file), ElementsAre(name));
    }
}

TEST(ZlogFile, ALineThatCannotBeReadIsNamedWithItsNumberAndReason) {
    struct Case {
        char const* section;
        char const* line;
        char const* problem;
    };
    constexpr Case cases[] = {
        {"[global]", "default format", "no \"=\""},
        {"[global]", "= \"%m\"", "no name before \"=\""},
        {"[global]", "default format = %m", "the value of \"default format\" is not in double quotes"},
        {"[global]", "default format = \"%m", "the value of \"default format\" is not in double quotes"},
        {"[global]", "default format = \"", "the value of \"default format\" is not in double quotes"},
        {"[global]", "default format =", "the value of \"default format\" is not in double quotes"},
        {"[global]", "default format = \"%k\"", "unknown conversion \"%k\""},
        {"[global]", "default  format = \"%m\"", "unknown setting \"default  format\""},
        {"[global]", "strict init = \"true\"", "unknown setting \"strict init\""},
        {"[formats]", "f", "no \"=\""},
        {"[formats]", "two words = \"%m\"", "the format's name \"two words\" contains a blank"},
        {"[formats]", "f = \"%m\" # comment", "the value of \"f\" is not in double quotes"},
        {"[formats]", "f = \"%d\"", "%d without a date text in parentheses"},
        {"[rules]", "DNA", "no \".=LEVEL\""},
        {"[rules]", "DNA.DEBUG >syslog, LOG_LOCAL0;", "no \".=LEVEL\""},
        {"[rules]", ".=DEBUG >syslog, LOG_LOCAL0;", "\"\" is not a category"},
        {"[rules]", "A B.=DEBUG >syslog, LOG_LOCAL0;", "\"A B\" is not a category"},
        {"[rules]", "A\tB.=DEBUG >syslog, LOG_LOCAL0;", "\"A\tB\" is not a category"},
        {"[rules]", "DNA.=TRACE >syslog, LOG_LOCAL0;", "unknown level \"TRACE\""},
        {"[rules]", "DNA.=debug >syslog, LOG_LOCAL0;", "unknown level \"debug\""},
        {"[rules]", "DNA.=", "unknown level \"\""},
        {"[rules]", "DNA.= DEBUG >syslog, LOG_LOCAL0;", "unknown level \"\""},
        {"[rules]", "DNA.=DEBUG", "\">syslog, LOG_LOCAL0;\" must follow the level"},
        {"[rules]", "DNA.=DEBUG >stdout;", "\">syslog, LOG_LOCAL0;\" must follow the level"},
        {"[rules]", "DNA.=DEBUG >syslog, LOG_LOCAL1;", "\">syslog, LOG_LOCAL0;\" must follow the level"},
        {"[rules]", "DNA.=DEBUG >syslog, LOG_LOCAL0", "\">syslog, LOG_LOCAL0;\" must follow the level"},
        {"[rules]", "DNA.=DEBUG >syslog, LOG_LOCAL0; for_inf", "unknown format \"for_inf\""},
        {"[rules]", "DNA.=DEBUG >syslog, LOG_LOCAL0;\r", "unknown format \"\r\""},
        {"[levels]", "", "unknown section [levels]"},
        {"[rules]\r", "", "a line outside the known sections"},
    };
    for (auto const& [section, line, problem] : cases) {
        auto const text = std::string{section} + "\n" + line + "\n[rules]\nOK.=INFO >syslog, LOG_LOCAL0;\n";
        auto const number = std::string{*line == '\0' ? "1" : "2"};
        EXPECT_THAT(problems_of(text), ElementsAre(number + ": " + problem)) << line;
        // The other lines hold all the same.
        EXPECT_THAT(names_of_categories(read_zlog_file(text)), ElementsAre("OK")) << line;
    }
}

TEST(ZlogFile, EachLineOutsideAKnownSectionIsAProblem) {
    EXPECT_THAT(problems_of("stray\n[levels]\nTRACE = 10\n\nCRIT = 130\n[rules]\n"),
                ElementsAre("1: a line outside the known sections", "2: unknown section [levels]",
                            "3: a line outside the known sections", "5: a line outside the known sections"));
}

TEST(ZlogFile, AFileThatEndsBeforeItsRulesIsNotWhole) {
    EXPECT_THAT(problems_of(""), ElementsAre("0: the file ends without a [rules] section"));
    EXPECT_THAT(problems_of("[global]\n\n"), ElementsAre("2: the file ends without a [rules] section"));
    // Wherever a header is cut, something is missing and said to be.
    for (std::size_t size = 0; size < zlog_header.size() - 1; ++size) {
        EXPECT_THAT(problems_of(std::string_view{zlog_header}.substr(0, size)), SizeIs(testing::Ge(1U)))
            << size;
    }
}

TEST(ZlogFile, AnUnreadableFileHasNothingButTheReason) {
    auto const file = unreadable_zlog_file("why");
    ASSERT_THAT(file.problems, SizeIs(1));
    EXPECT_EQ(file.problems.at(0).line, 0U);
    EXPECT_EQ(file.problems.at(0).what, "why");
    EXPECT_THAT(file.categories, IsEmpty());
    EXPECT_EQ(file.default_format, ZlogFormat::built_in());
}

} // namespace
} // namespace xpon::logger
