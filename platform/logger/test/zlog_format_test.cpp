#include "zlog_format.hpp"

#include <cstdlib>
#include <ctime>

#include <gmock/gmock.h>

#include "kit/matchers.hpp"

namespace xpon::logger {
namespace {

using core::Error;
using test::IsError;
using test::IsOk;

/// 3 February 2026, 04:05:06 UTC.
auto const some_time = std::chrono::system_clock::from_time_t(1'770'091'506);

spdlog::details::log_msg some_message() {
    return {some_time, spdlog::source_loc{"/build/src/xpon/dna/agent.cpp", 42, "int xpon::dna::start(bool)"},
            "DNA", spdlog::level::err, "link %s is {} down"};
}

std::string line_of(std::string_view format, spdlog::details::log_msg const& message = some_message()) {
    auto const compiled = ZlogFormat::compile(format);
    EXPECT_THAT(compiled, IsOk());
    spdlog::memory_buf_t line;
    compiled.value()->clone()->format(message, line);
    return {line.data(), line.size()};
}

class ZlogFormatTest : public testing::Test {
  protected:
    void SetUp() override {
        setenv("TZ", "UTC", 1);
        tzset();
    }
    void TearDown() override {
        unsetenv("TZ");
        tzset();
    }
};

TEST_F(ZlogFormatTest, EveryConversionGivesItsPartOfTheLine) {
    constexpr std::pair<char const*, char const*> cases[] = {
        {"", ""},
        {"plain text, 100 blanks", "plain text, 100 blanks"},
        {"%d(%d %b %T)", "03 Feb 04:05:06"},
        {"%d(%Y-%m-%d)T%d(%H:%M)", "2026-02-03T04:05"},
        {"%V", "ERROR"},
        {"%c", "DNA"},
        {"%m", "link %s is {} down"},
        {"%f", "agent.cpp"},
        {"%U", "start"},
        {"%L", "42"},
        {"a%nb", "a\nb"},
        {"100%%", "100%"},
        {"%%m", "%m"},
        {"[%-6V]", "[ERROR ]"},
        {"[%6V]", "[ ERROR]"},
        {"[%3V]", "[ERROR]"},
        {"[%.3V]", "[ERR]"},
        {"[%-6.3V]", "[ERR   ]"},
        {"[%6.3V]", "[   ERR]"},
        {"[%.0V]", "[]"},
        {"[%-14.14c]", "[DNA           ]"},
        {"[%5L]", "[   42]"},
        {"[%-20d(%T)]", "[04:05:06            ]"},
        {"%c%V%L", "DNAERROR42"},
    };
    for (auto const& [format, line] : cases) {
        EXPECT_EQ(line_of(format), line) << format;
    }
}

TEST_F(ZlogFormatTest, TheFormatsThatThisSystemWritesGiveItsLines) {
    EXPECT_EQ(line_of("%d(%d %b %T) %-6V %-14.14c - %m [%f:%U:%L]%n"),
              "03 Feb 04:05:06 ERROR  DNA            - link %s is {} down [agent.cpp:start:42]\n");
    EXPECT_EQ(line_of("%d(%d %b %T) %-6V %-14.14c - %m%n"),
              "03 Feb 04:05:06 ERROR  DNA            - link %s is {} down\n");
    EXPECT_EQ(line_of("%d(%d %b %T) CRIT   %-14.14c - %m [%f:%U:%L]%n"),
              "03 Feb 04:05:06 CRIT   DNA            - link %s is {} down [agent.cpp:start:42]\n");
}

TEST_F(ZlogFormatTest, ALongCategoryIsCutToItsColumn) {
    auto message = some_message();
    message.logger_name = "ONT-CONNECTIONS_SUBJECT";
    EXPECT_EQ(line_of("%-14.14c|", message), "ONT-CONNECTION|");
}

TEST_F(ZlogFormatTest, TheBuiltInFormatIsTheDefaultOfTheWrittenFiles) {
    spdlog::memory_buf_t line;
    ZlogFormat::built_in()->clone()->format(some_message(), line);
    EXPECT_EQ((std::string{line.data(), line.size()}),
              "03 Feb 04:05:06 ERROR  DNA            - link %s is {} down [agent.cpp:start:42]\n");
}

TEST_F(ZlogFormatTest, EveryLevelHasItsName) {
    std::string names;
    for (int level = 0; level <= 5; ++level) {
        auto message = some_message();
        message.level = static_cast<spdlog::level::level_enum>(level);
        names += line_of("%V ", message);
    }
    EXPECT_EQ(names, "DEBUG INFO NOTICE WARN ERROR FATAL ");
}

TEST_F(ZlogFormatTest, TheFunctionIsItsBareNameWhicheverCompilerNamesIt) {
    constexpr std::pair<char const*, char const*> cases[] = {
        {"main", "main"},
        {"", ""},
        {"int main()", "main"},
        {"xpon::rsh::Poller::Poller(int)", "Poller"},
        {"virtual xpon::core::Result<void> xpon::kernel::Kernel::apply(short unsigned int) const", "apply"},
        {"boost::outcome_v2::basic_result<int, Payload<void(int)>, P> ns::Class<T>::name(int) [with T = "
         "F(int)]",
         "name"},
        {"char const *ns::text(int)", "text"},
        {"Some &ns::reference()", "reference"},
        {"void ns::{anonymous}::step(int)", "step"},
        {"void ns::(anonymous namespace)::step(int)", "step"},
        {"ns::outer(int)::<lambda(char)>", "outer"},
        {"auto ns::outer(int)::(anonymous class)::operator()(char) const", "outer"},
        {"bool ns::operator<(A, B)", "bool ns::operator<(A, B)"},
    };
    for (auto const& [signature, name] : cases) {
        auto message = some_message();
        message.source.funcname = signature;
        EXPECT_EQ(line_of("%U", message), name);
    }
}

TEST_F(ZlogFormatTest, AFileNameWithoutAFolderIsItself) {
    auto message = some_message();
    message.source.filename = "agent.cpp";
    EXPECT_EQ(line_of("%f", message), "agent.cpp");
}

TEST_F(ZlogFormatTest, AMessageOfAnyLengthAndContentGoesThroughUnharmed) {
    auto const text = std::string(100'000, 'x') + std::string{"\0\n%n%m{}\xff", 9};
    auto message = some_message();
    message.payload = text;
    EXPECT_EQ(line_of("<%m>", message), "<" + text + ">");
}

TEST_F(ZlogFormatTest, AnInvalidConversionIsNamed) {
    constexpr std::pair<char const*, char const*> cases[] = {
        {"%x", "unknown conversion \"%x\""},
        {"a %-6.6Q b", "unknown conversion \"%-6.6Q\""},
        {"%D", "unknown conversion \"%D\""},
        {"%", "unknown conversion \"%\""},
        {"text %", "unknown conversion \"%\""},
        {"%-", "unknown conversion \"%-\""},
        {"%12", "unknown conversion \"%12\""},
        {"%12.", "unknown conversion \"%12.\""},
        {"%1000c", "unknown conversion \"%1000\""},
        {"%.1000c", "unknown conversion \"%.1000\""},
        {"%--c", "unknown conversion \"%--\""},
        {"% c", "unknown conversion \"% \""},
        {"%d", "%d without a date text in parentheses"},
        {"%d %m", "%d without a date text in parentheses"},
        {"%d(%T", "%d without a date text in parentheses"},
        {"%d()", "the date text \"\" gives nothing or too much"},
    };
    for (auto const& [format, reason] : cases) {
        EXPECT_THAT(ZlogFormat::compile(format), IsError(Error::InvalidInputArg, reason)) << format;
    }
    EXPECT_THAT(ZlogFormat::compile("%d(" + std::string(256, 'x') + ")"),
                IsError(Error::InvalidInputArg,
                        "the date text \"" + std::string(256, 'x') + "\" gives nothing or too much"));
}

} // namespace
} // namespace xpon::logger
