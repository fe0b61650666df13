#include "xpon/logger/logger.hpp"

#include <array>
#include <atomic>
#include <bit>
#include <csignal>
#include <filesystem>
#include <functional>
#include <future>
#include <thread>

#include <gmock/gmock.h>

#include "kit/fifo.hpp"
#include "kit/matchers.hpp"
#include "kit/scratch_folder.hpp"
#include "kit/wait_until.hpp"
#include "zlog_texts.hpp"

namespace xpon::logger {
namespace {

using core::Error;
using core::LogLevel;
using test::IsError;
using test::IsOk;
using test::ScratchFolder;
using test::write_file;
using Context = std::unique_ptr<Logger::LoggerContext>;

/// The enabled levels by their first letters, the least severe first.
std::string levels_of(core::ILogger const& logger) {
    std::string letters;
    for (std::size_t level = 0; level < 6; ++level) {
        letters += logger.is_enabled(static_cast<LogLevel>(level)) ? "DINWEF"[level] : '-';
    }
    return letters;
}

// These tests write no line: their files are whole, and only is_enabled() is asked.
class LoggerTest : public testing::Test {
  protected:
    Context context_with(std::string const& rules) {
        write_file(path, zlog_header + rules);
        auto context = Logger::create_context(path, "TEST", 0);
        EXPECT_THAT(context, IsOk());
        return std::move(context).value();
    }

    ScratchFolder folder;
    std::filesystem::path path = folder / "TEST.conf";
};

TEST_F(LoggerTest, ALoggerWithoutACategoryCannotBeMade) {
    EXPECT_THROW(Logger{""}, std::invalid_argument);
}

TEST_F(LoggerTest, AContextWithoutANameIsRefused) {
    EXPECT_THAT(Logger::create_context(path, "", 0),
                IsError(Error::InvalidInputArg, "A logging context needs a name"));
}

TEST_F(LoggerTest, WithoutAContextTheBuiltInLevelsHold) {
    EXPECT_EQ(levels_of(Logger{"DNA"}), "--NWEF");
    EXPECT_EQ(levels_of(Logger{"LOG-CFG_OTHER"}), "--NWEF");
    EXPECT_EQ(levels_of(Logger{"LOG-CFG"}), "DINWEF");
    EXPECT_EQ(levels_of(Logger{"LOG-CFG_IPC"}), "DINWEF");
    EXPECT_EQ(levels_of(Logger{"LOG-CFG_CFGDB"}), "DINWEF");
}

TEST_F(LoggerTest, ExactlyTheLevelsWithARuleAreEnabled) {
    constexpr std::array<char const*, 6> expected{"-----F", "----EF", "---WEF", "--NWEF", "-INWEF", "DINWEF"};
    for (std::size_t level = 0; level < expected.size(); ++level) {
        for (auto const* const category :
             {"DNA", "PON-PORT_1", "ONT_1/1", "API-SVC", "DNA_IGMP", "LOG-CFG", "a.=b"}) {
            auto const context = context_with(zlog_rules("OTHER", 5) + zlog_rules(category, level) +
                                              zlog_rules(std::string{category} + "_1", 0));
            EXPECT_EQ(levels_of(Logger{category}), expected.at(level)) << category;
        }
    }
}

TEST_F(LoggerTest, LevelsInBetweenMayBeOff) {
    auto const context = context_with("DNA.=DEBUG >syslog, LOG_LOCAL0;\nDNA.=FATAL >syslog, LOG_LOCAL0;\n");
    EXPECT_EQ(levels_of(Logger{"DNA"}), "D----F");
}

TEST_F(LoggerTest, ACategoryWithoutARuleInAWholeFileIsSilent) {
    auto const context = context_with(zlog_rules("DNA", 5));
    EXPECT_EQ(levels_of(Logger{"SNMP"}), "------");
    EXPECT_EQ(levels_of(Logger{"DNA_"}), "------");
    EXPECT_EQ(levels_of(Logger{"dna"}), "------");
    EXPECT_EQ(levels_of(Logger{"LOG-CFG"}), "------");
}

TEST_F(LoggerTest, ALevelOutsideTheEnumerationCountsAsTheMostSevere) {
    auto const context = context_with(zlog_rules("FATAL-ONLY", 0));
    EXPECT_TRUE(Logger{"FATAL-ONLY"}.is_enabled(std::bit_cast<LogLevel>(std::uint8_t{6})));
    EXPECT_TRUE(Logger{"FATAL-ONLY"}.is_enabled(std::bit_cast<LogLevel>(std::uint8_t{255})));
    EXPECT_FALSE(Logger{"SILENT"}.is_enabled(std::bit_cast<LogLevel>(std::uint8_t{6})));
}

TEST_F(LoggerTest, LoggersObeyTheContextInForceWhicheverIsOlder) {
    Logger const before{"DNA"};
    EXPECT_EQ(levels_of(before), "--NWEF");
    auto context = context_with(zlog_rules("DNA", 0));
    Logger const after{"DNA"};
    EXPECT_EQ(levels_of(before), "-----F");
    EXPECT_EQ(levels_of(after), "-----F");
    context.reset();
    EXPECT_EQ(levels_of(before), "--NWEF");
    EXPECT_EQ(levels_of(after), "--NWEF");
}

TEST_F(LoggerTest, TheNewestContextWinsInWhateverOrderTheyEnd) {
    Logger const logger{"DNA"};
    auto first = context_with(zlog_rules("DNA", 0));
    auto second = context_with(zlog_rules("DNA", 1));
    auto third = context_with(zlog_rules("DNA", 5));
    EXPECT_EQ(levels_of(logger), "DINWEF");
    second.reset();
    EXPECT_EQ(levels_of(logger), "DINWEF");
    third.reset();
    EXPECT_EQ(levels_of(logger), "-----F");
    first.reset();
    EXPECT_EQ(levels_of(logger), "--NWEF");
}

TEST_F(LoggerTest, ReloadBringsTheNewRulesToEveryLogger) {
    Logger const logger{"DNA"};
    auto const context = context_with(zlog_rules("DNA", 0));
    Logger const other{"SNMP"};
    write_file(path, zlog_header + zlog_rules("DNA", 4) + zlog_rules("SNMP", 1));
    EXPECT_EQ(levels_of(logger), "-----F");
    EXPECT_THAT(context->reload(), IsOk());
    EXPECT_EQ(levels_of(logger), "-INWEF");
    EXPECT_EQ(levels_of(other), "----EF");
}

TEST_F(LoggerTest, ReloadOfAnOlderContextCountsOnceItIsInForce) {
    Logger const logger{"DNA"};
    auto const older = context_with(zlog_rules("DNA", 0));
    auto newer = context_with(zlog_rules("DNA", 1));
    write_file(path, zlog_header + zlog_rules("DNA", 5));
    EXPECT_THAT(older->reload(), IsOk());
    EXPECT_EQ(levels_of(logger), "----EF");
    newer.reset();
    EXPECT_EQ(levels_of(logger), "DINWEF");
}

TEST_F(LoggerTest, ReloadThatFailsNamesTheReasonAndChangesNothing) {
    Logger const logger{"DNA"};
    auto const context = context_with(zlog_rules("DNA", 1));
    std::pair<std::function<void()>, char const*> const cases[] = {
        {[&] { write_file(path, zlog_header + zlog_rules("DNA", 5) + "DNA.=LOUD\n\nDNA\n"); },
         " line 15: unknown level \"LOUD\" (lines that cannot be read: 2)"},
        {[&] { write_file(path, ""); }, ": the file ends without a [rules] section"},
        {[&] { std::filesystem::remove(path); }, ": No such file or directory"},
        {[&] { std::filesystem::create_directory(path); }, ": Is a directory"},
    };
    for (auto const& [spoil, reason] : cases) {
        spoil();
        EXPECT_THAT(context->reload(), IsError(Error::CommonError, "Log rules stay as they were: \"" +
                                                                       path.string() + "\"" + reason));
        EXPECT_EQ(levels_of(logger), "----EF");
    }
}

TEST_F(LoggerTest, ALargeFileIsReadWhole) {
    std::string rules;
    for (int ont = 0; ont < 4096; ++ont) {
        rules += zlog_rules("ONT_" + std::to_string(ont / 256) + "/" + std::to_string(ont % 256), 5);
    }
    auto const context = context_with(rules + zlog_rules("LAST", 0));
    EXPECT_EQ(levels_of(Logger{"ONT_15/255"}), "DINWEF");
    EXPECT_EQ(levels_of(Logger{"LAST"}), "-----F");
}

std::atomic<int> signals_handled{0};

/// Sends a thread the signal, whose handler counts it, once it waits for something.
testing::AssertionResult interrupt(pid_t thread, int signal) {
    auto const stat = "/proc/self/task/" + std::to_string(thread) + "/stat";
    if (!test::wait_until([&] { return test::read_file(stat).find(") S ") != std::string::npos; })) {
        return testing::AssertionFailure() << "it does not wait";
    }
    int const before = signals_handled;
    if (tgkill(getpid(), thread, signal) != 0 ||
        !test::wait_until([before] { return signals_handled > before; })) {
        return testing::AssertionFailure() << "the signal is not handled";
    }
    return testing::AssertionSuccess();
}

TEST_F(LoggerTest, ASignalWhileAFileIsReadCostsNoRule) {
    struct sigaction counting{}; // does not ask that the interrupted calls go on
    struct sigaction before{};
    counting.sa_handler = [](int) { ++signals_handled; };
    ASSERT_EQ(sigaction(SIGUSR1, &counting, &before), 0);

    test::Fifo const file{path};
    std::promise<pid_t> reader;
    auto context = std::async(std::launch::async, [&] {
        reader.set_value(gettid());
        return Logger::create_context(path, "TEST", 0);
    });
    auto const thread = reader.get_future().get();
    EXPECT_TRUE(interrupt(thread, SIGUSR1)) << "while it opens the file";
    {
        auto const writing = file.wait_for_reader();
        EXPECT_TRUE(writing);
        EXPECT_TRUE(interrupt(thread, SIGUSR1)) << "while it reads";
        auto const text = zlog_header + zlog_rules("DNA", 1);
        EXPECT_EQ(write(writing.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    auto const in_force = context.get();
    EXPECT_THAT(in_force, IsOk());
    EXPECT_EQ(levels_of(Logger{"DNA"}), "----EF");
    EXPECT_EQ(levels_of(Logger{"SNMP"}), "------") << "the file is whole";

    sigaction(SIGUSR1, &before, nullptr);
}

TEST_F(LoggerTest, LevelsAreAskedWhileRulesChange) {
    Logger const logger{"DNA"};
    auto const context = context_with(zlog_rules("DNA", 2));
    std::atomic<bool> over = false;
    std::thread asking{[&] {
        while (!over) {
            // Whatever holds at the moment, warnings are part of it.
            ASSERT_TRUE(logger.is_enabled(LogLevel::Warn));
        }
    }};
    for (std::size_t round = 0; round < 200; ++round) {
        test::write_file(path, zlog_header + zlog_rules("DNA", 2 + round % 4));
        ASSERT_THAT(context->reload(), IsOk());
        Logger const short_lived{"DNA"};
        ASSERT_TRUE(short_lived.is_enabled(LogLevel::Warn));
    }
    over = true;
    asking.join();
}

} // namespace
} // namespace xpon::logger
