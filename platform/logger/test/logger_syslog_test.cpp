#include "xpon/logger/logger.hpp"

#include <array>
#include <atomic>
#include <bit>
#include <cerrno>
#include <cstring>
#include <optional>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <pty.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "core/unique_fd.hpp"
#include "kit/matchers.hpp"
#include "kit/scratch_folder.hpp"
#include "kit/wait_readable.hpp"
#include "zlog_texts.hpp"

namespace xpon::logger {
namespace {

using core::LogLevel;
using core::UniqueFd;
using test::IsOk;
using test::ScratchFolder;
using test::wait_readable;
using test::write_file;
using testing::AllOf;
using testing::Eq;
using testing::Field;
using testing::MatchesRegex;
using testing::Optional;
using Context = std::unique_ptr<Logger::LoggerContext>;

/// Stands in for the system's log service: /dev/log leads here. In a sandbox only.
class SyslogReceiver {
  public:
    struct Line {
        int priority = -1;
        std::string ident;
        std::string text;

        friend std::ostream& operator<<(std::ostream& out, Line const& line) {
            return out << "<" << line.priority << "> " << line.ident << ": " << line.text;
        }
    };

    SyslogReceiver() {
        if (std::filesystem::read_symlink("/dev/log") != address.sun_path) {
            throw std::runtime_error("/dev/log does not lead to the sandbox's own socket");
        }
        std::filesystem::create_directories(std::filesystem::path{address.sun_path}.parent_path());
        // Somebody else's socket is left alone: the address is in use then.
        if (::bind(socket.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
            throw std::runtime_error(std::string{address.sun_path} + ": " + std::strerror(errno));
        }
    }
    ~SyslogReceiver() { ::unlink(address.sun_path); }
    SyslogReceiver(SyslogReceiver const&) = delete;
    SyslogReceiver& operator=(SyslogReceiver const&) = delete;

    /// The next line; nothing if none comes.
    std::optional<Line> next() {
        if (!wait_readable(socket.get())) {
            return std::nullopt;
        }
        std::string datagram(1'000'000, '\0');
        auto const size = ::recv(socket.get(), datagram.data(), datagram.size(), 0);
        datagram.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
        return parsed(datagram);
    }

    void hang_up() { socket.reset(); }

    bool nothing_more() const { return !wait_readable(socket.get(), std::chrono::milliseconds{0}); }

  private:
    /// "<PRIORITY>Mmm dd hh:mm:ss IDENT: TEXT"
    static Line parsed(std::string const& datagram) {
        constexpr std::size_t date_length = 16;
        auto const priority_end = datagram.find('>');
        auto const ident_end = datagram.find(": ", priority_end);
        if (!datagram.starts_with('<') || ident_end == std::string::npos ||
            ident_end < priority_end + 1 + date_length) {
            return {-1, "not a syslog message", datagram};
        }
        auto const ident_begin = priority_end + 1 + date_length;
        return {std::stoi(datagram.substr(1)), datagram.substr(ident_begin, ident_end - ident_begin),
                datagram.substr(ident_end + 2)};
    }

    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = "/run/systemd/journal/dev-log"};
    UniqueFd socket{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

using Line = SyslogReceiver::Line;

auto is_line(int priority, testing::Matcher<std::string> const& text) {
    return Optional(AllOf(Field("priority", &Line::priority, priority),
                          Field("ident", &Line::ident, program_invocation_short_name),
                          Field("text", &Line::text, text)));
}

/// A date as all formats here begin with, then this text; a line end as it is in the format.
auto dated(std::string const& expression) {
    return MatchesRegex("[0-9]{2} [A-Z][a-z]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} " + expression);
}

constexpr int local0 = 16 * 8;
constexpr int local0_alert = local0 + 1;
constexpr int local0_error = local0 + 3;
constexpr int local0_warning = local0 + 4;
constexpr int local0_notice = local0 + 5;
constexpr int local0_info = local0 + 6;
constexpr int local0_debug = local0 + 7;

constexpr std::array<std::pair<LogLevel, int>, 6> priorities{{
    {LogLevel::Debug, local0_debug},
    {LogLevel::Info, local0_info},
    {LogLevel::Notice, local0_notice},
    {LogLevel::Warn, local0_warning},
    {LogLevel::Error, local0_error},
    {LogLevel::Fatal, local0_alert},
}};

/// Writes a line with the place of the call.
unsigned write_line(Logger& logger, LogLevel level, std::string_view text,
                    std::source_location where = std::source_location::current()) {
    logger.log(level, text, where);
    return where.line();
}

class LoggerSyslogTest : public testing::Test {
  protected:
    Context context_with(std::string const& text) {
        write_file(path, text);
        return open_context();
    }

    Context open_context() {
        auto context = Logger::create_context(path, "LOG-CFG_IPC", 7);
        EXPECT_THAT(context, IsOk());
        return std::move(context).value();
    }

    SyslogReceiver syslog;
    ScratchFolder folder;
    std::filesystem::path path = folder / "LOG-CONFIG.conf";
};

TEST_F(LoggerSyslogTest, EveryLevelHasItsPriorityAndTheFormatOfItsRule) {
    auto const context = context_with(zlog_header + zlog_rules("DNA", 5));
    Logger logger{"DNA"};
    constexpr std::array<char const*, 6> beginnings{
        "DEBUG  DNA            - text ", "INFO   DNA            - text",  "NOTICE DNA            - text",
        "WARN   DNA            - text",  "ERROR  DNA            - text ", "CRIT   DNA            - text "};
    for (auto const& [level, priority] : priorities) {
        auto const line = write_line(logger, level, "text");
        auto const beginning = std::string{beginnings.at(static_cast<std::size_t>(level))};
        auto const place = "\\[logger_syslog_test.cpp:TestBody:" + std::to_string(line) + "\\]";
        auto const text = beginning.ends_with(' ') ? beginning + place : beginning;
        EXPECT_THAT(syslog.next(), is_line(priority, dated(text + "\n")));
    }
    EXPECT_TRUE(syslog.nothing_more());
}

TEST_F(LoggerSyslogTest, ALevelThatIsOffIsStillWrittenInTheFilesDefaultFormat) {
    auto const context = context_with("[global]\ndefault format = \"here: %V %m\"\n[rules]\n" +
                                      zlog_rules("SNMP", 1).substr(42));
    Logger logger{"DNA"};
    for (auto const& [level, priority] : priorities) {
        ASSERT_FALSE(logger.is_enabled(level));
        write_line(logger, level, "text");
        EXPECT_THAT(syslog.next(), is_line(priority, MatchesRegex("here: [A-Z]+ text")));
    }
}

TEST_F(LoggerSyslogTest, WithoutAContextEveryLineHasTheBuiltInFormat) {
    Logger logger{"LOG-CFG_CATEGORY_TOO_LONG"};
    for (auto const& [level, priority] : priorities) {
        auto const line = write_line(logger, level, "text");
        EXPECT_THAT(syslog.next(), is_line(priority, dated("[A-Z]+ +LOG-CFG_CATEGO - text "
                                                           "\\[logger_syslog_test.cpp:TestBody:" +
                                                           std::to_string(line) + "\\]\n")));
    }
}

TEST_F(LoggerSyslogTest, MessagesGoThroughUnharmed) {
    auto const context = context_with("[global]\ndefault format = \"%m\"\n[rules]\n");
    Logger logger{"DNA"};
    std::string const texts[] = {
        "",
        "%s %n %d %% %m",
        "{} {:d} {0",
        "two\nlines\n",
        " blanks around ",
        "\xc3\xa4 \xff\xfe \x1b[31m \t",
        std::string(100'000, 'x') + "end",
    };
    for (auto const& text : texts) {
        write_line(logger, LogLevel::Error, text);
        EXPECT_THAT(syslog.next(), is_line(local0_error, Eq(text)));
    }
}

TEST_F(LoggerSyslogTest, ALevelOutsideTheEnumerationIsWrittenAsTheMostSevere) {
    auto const context = context_with("[global]\ndefault format = \"%V %m\"\n[rules]\n");
    Logger logger{"DNA"};
    for (auto const level : {std::uint8_t{6}, std::uint8_t{7}, std::uint8_t{255}}) {
        write_line(logger, std::bit_cast<LogLevel>(level), "text");
        EXPECT_THAT(syslog.next(), is_line(local0_alert, Eq("FATAL text")));
    }
}

TEST_F(LoggerSyslogTest, AMissingFileIsOneWarningAndBuiltInLevels) {
    auto const context = open_context();
    EXPECT_THAT(syslog.next(),
                is_line(local0_warning,
                        dated("WARN   LOG-CFG_IPC    - Log rules of LOG-CFG_IPC:7 are incomplete, categories "
                              "without one have the built-in levels: \"" +
                              path.string() +
                              "\": No such file or directory \\[logger.cpp:create_context:[0-9]+\\]\n")));
    EXPECT_TRUE(syslog.nothing_more());
    EXPECT_TRUE(Logger{"LOG-CFG"}.is_enabled(LogLevel::Debug));
    EXPECT_FALSE(Logger{"DNA"}.is_enabled(LogLevel::Info));
    EXPECT_TRUE(Logger{"DNA"}.is_enabled(LogLevel::Notice));
}

TEST_F(LoggerSyslogTest, OtherUnreadableFilesAreOneWarningToo) {
    std::filesystem::create_directory(path);
    auto const of_a_folder = open_context();
    EXPECT_THAT(syslog.next(), is_line(local0_warning, dated(".*: Is a directory .*\n")));
    std::filesystem::remove(path);
    auto const of_an_empty_file = context_with("");
    EXPECT_THAT(syslog.next(),
                is_line(local0_warning, dated(".*: the file ends without a \\[rules\\] section .*\n")));
    EXPECT_TRUE(syslog.nothing_more());
}

TEST_F(LoggerSyslogTest, BrokenLinesAreOneWarningAndTheOthersHold) {
    auto const context = context_with(zlog_header + "DNA.=INFO >syslog, LOG_LOCAL0; for_info\n"
                                                    "SNMP.=INFO >syslog, LOG_LOC\n"
                                                    "LOG-CFG_IPC.=FATAL >syslog, LOG_LOCAL0; for_fatal\n"
                                                    "DNA.=LOUD >syslog, LOG_LOCAL0;\n");
    EXPECT_THAT(
        syslog.next(),
        is_line(local0_warning, dated("WARN   LOG-CFG_IPC    - .*: \"" + path.string() +
                                      "\" line 10: \">syslog, LOG_LOCAL0;\" must follow the level \\(lines "
                                      "that cannot be read: 2\\) \\[logger.cpp:create_context:[0-9]+\\]\n")));
    EXPECT_TRUE(syslog.nothing_more());
    // A category with a readable rule obeys exactly its rules, also the one that the warning is written
    // under.
    EXPECT_TRUE(Logger{"DNA"}.is_enabled(LogLevel::Info));
    EXPECT_FALSE(Logger{"DNA"}.is_enabled(LogLevel::Error));
    EXPECT_FALSE(Logger{"LOG-CFG_IPC"}.is_enabled(LogLevel::Warn));
    EXPECT_TRUE(Logger{"SNMP"}.is_enabled(LogLevel::Notice));
    EXPECT_FALSE(Logger{"SNMP"}.is_enabled(LogLevel::Info));
    EXPECT_TRUE(Logger{"LOG-CFG"}.is_enabled(LogLevel::Debug));
}

TEST_F(LoggerSyslogTest, AFileThatBecomesReadableEndsTheBuiltInLevels) {
    Logger const logger{"DNA"};
    auto const context = open_context();
    EXPECT_TRUE(syslog.next());
    write_file(path, zlog_header + zlog_rules("DNA", 0));
    EXPECT_THAT(context->reload(), IsOk());
    EXPECT_FALSE(logger.is_enabled(LogLevel::Error));
    EXPECT_TRUE(syslog.nothing_more());
}

TEST_F(LoggerSyslogTest, TheFormatFollowsTheContextInForce) {
    Logger logger{"DNA"};
    auto older = context_with("[global]\ndefault format = \"older %m\"\n[rules]\n");
    auto newer = context_with("[global]\ndefault format = \"newer %m\"\n[rules]\n");
    write_line(logger, LogLevel::Error, "text");
    EXPECT_THAT(syslog.next(), is_line(local0_error, Eq("newer text")));
    write_file(path, "[global]\ndefault format = \"reloaded %m\"\n[rules]\n");
    EXPECT_THAT(newer->reload(), IsOk());
    write_line(logger, LogLevel::Error, "text");
    EXPECT_THAT(syslog.next(), is_line(local0_error, Eq("reloaded text")));
    newer.reset();
    write_line(logger, LogLevel::Error, "text");
    EXPECT_THAT(syslog.next(), is_line(local0_error, Eq("older text")));
    older.reset();
    write_line(logger, LogLevel::Error, "text");
    EXPECT_THAT(syslog.next(), is_line(local0_error, dated("ERROR  DNA            - text .*\n")));
}

TEST_F(LoggerSyslogTest, AFormatWithoutALineEndHasNone) {
    auto const context = context_with("[global]\ndefault format = \"%c: %m\"\n[rules]\n");
    Logger logger{"DNA"};
    write_line(logger, LogLevel::Info, "text");
    EXPECT_THAT(syslog.next(), is_line(local0_info, Eq("DNA: text")));
}

TEST_F(LoggerSyslogTest, ErrnoIsLeftAlone) {
    auto const context = context_with("[global]\ndefault format = \"%m\"\n[rules]\n");
    Logger logger{"DNA"};
    errno = EDOM;
    write_line(logger, LogLevel::Error, "heard");
    EXPECT_EQ(errno, EDOM);
    EXPECT_TRUE(syslog.next());
}

TEST(LoggerWithoutSyslog, LinesAreLostUntilThereIsAReceiver) {
    Logger logger{"LOG-CFG"};
    errno = EDOM;
    write_line(logger, LogLevel::Error, "unheard");
    EXPECT_EQ(errno, EDOM);
    SyslogReceiver syslog;
    write_line(logger, LogLevel::Error, "heard");
    EXPECT_THAT(syslog.next(), is_line(local0_error, dated("ERROR  LOG-CFG        - heard .*\n")));
    EXPECT_TRUE(syslog.nothing_more());
}

/// Puts another file in the place of standard error while it lives.
class StandardError {
  public:
    explicit StandardError(int replacement)
      : before{::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)} {
        ::dup2(replacement, STDERR_FILENO);
    }
    ~StandardError() { ::dup2(before.get(), STDERR_FILENO); }
    StandardError(StandardError const&) = delete;
    StandardError& operator=(StandardError const&) = delete;

  private:
    UniqueFd before;
};

/// Up to the end of a line, which a terminal hands over in parts at times.
std::string read_line(int fd) {
    std::string line;
    while (!line.ends_with('\n')) {
        std::array<char, 4096> part{};
        auto const size = wait_readable(fd) ? ::read(fd, part.data(), part.size()) : 0;
        if (size <= 0) {
            ADD_FAILURE() << "the line ends here";
            break;
        }
        line.append(part.data(), static_cast<std::size_t>(size));
    }
    return line;
}

TEST_F(LoggerSyslogTest, ATerminalOnStandardErrorGetsEveryLineAsWellWithoutColours) {
    auto const context = context_with("[global]\ndefault format = \"%V %c %m%n\"\n[rules]\n");
    int terminal = -1;
    int user = -1;
    ASSERT_EQ(openpty(&user, &terminal, nullptr, nullptr, nullptr), 0);
    UniqueFd const terminal_end{terminal};
    UniqueFd const user_end{user};
    std::vector<std::string> seen;
    {
        StandardError const replaced{terminal};
        Logger logger{"DNA"};
        for (auto const& [level, priority] : priorities) {
            write_line(logger, level, "text");
            seen.push_back(read_line(user));
        }
    }
    // The terminal itself makes the line ends.
    EXPECT_THAT(seen, testing::ElementsAre("DEBUG DNA text\r\n", "INFO DNA text\r\n", "NOTICE DNA text\r\n",
                                           "WARN DNA text\r\n", "ERROR DNA text\r\n", "FATAL DNA text\r\n"));
    for (auto const& [level, priority] : priorities) {
        EXPECT_THAT(syslog.next(), is_line(priority, MatchesRegex("[A-Z]+ DNA text\n")));
    }
}

TEST_F(LoggerSyslogTest, StandardErrorThatIsNoTerminalGetsNothing) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    UniqueFd const reading{ends[0]};
    UniqueFd const writing{ends[1]};
    {
        StandardError const replaced{writing.get()};
        Logger logger{"DNA"};
        write_line(logger, LogLevel::Fatal, "text");
    }
    EXPECT_TRUE(syslog.next());
    EXPECT_FALSE(wait_readable(reading.get(), std::chrono::milliseconds{0}));
}

TEST_F(LoggerSyslogTest, LoggersWriteWholeLinesWhileRulesChangeAndContextsComeAndGo) {
    auto const text = "[global]\ndefault format = \"%c %m\"\n[rules]\n";
    auto const context = context_with(text);
    constexpr int writers = 3;
    constexpr int rounds = 100;
    std::atomic<bool> over = false;

    std::thread changer{[&] {
        while (!over) {
            ASSERT_THAT(context->reload(), IsOk());
            auto const passing = Logger::create_context(path, "PASSING", 0);
            ASSERT_THAT(passing, IsOk());
            ASSERT_THAT(passing.value()->reload(), IsOk());
        }
    }};
    Logger shared{"SHARED"};
    std::vector<std::thread> threads;
    std::set<std::string> expected;
    for (int writer = 0; writer < writers; ++writer) {
        for (int round = 0; round < rounds; ++round) {
            expected.insert(fmt::format("SHARED writer {} round {}", writer, round));
            expected.insert(fmt::format("OWN writer {} round {}", writer, round));
        }
        threads.emplace_back([&shared, writer] {
            for (int round = 0; round < rounds; ++round) {
                auto const line = fmt::format("writer {} round {}", writer, round);
                Logger own{"OWN"};
                write_line(own, LogLevel::Info, line);
                write_line(shared, shared.is_enabled(LogLevel::Info) ? LogLevel::Info : LogLevel::Error,
                           line);
            }
        });
    }
    while (!expected.empty()) {
        auto const line = syslog.next().value_or(Line{-1, "", "no line came"});
        if (expected.erase(line.text) == 0) {
            ADD_FAILURE() << line.text << "; still missing: " << expected.size();
            syslog.hang_up(); // or the writers would wait for ever
            break;
        }
    }
    over = true;
    changer.join();
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(syslog.nothing_more());
}

} // namespace
} // namespace xpon::logger
