// What the daemon inherits from whoever starts it changes nothing that it does.

#include "integration/followed_board.hpp"
#include "integration/terminal.hpp"
#include "kit/report.hpp"

namespace xpon::test {
namespace {

/// What env(1) is told before it becomes the daemon.
struct Inheritance {
    char const* name; ///< of the test
    char const* what; ///< for the report
    std::vector<std::string> settings;
};

void PrintTo(Inheritance const& inheritance, std::ostream* stream) {
    *stream << inheritance.what;
}

class Inherited : public FollowedBoard, public testing::WithParamInterface<Inheritance> {
  protected:
    static bool has_output(Terminal const& terminal) {
        return contents(syslog_ng_conf).find("destination(d_rsh_" + terminal.number() + ");") !=
               std::string::npos;
    }
};

TEST_P(Inherited, ChangesNothing) {
    auto const& inheritance = GetParam();
    write_file("/tmp/script", "exit 0\n");
    for (auto const* const program : {"sync", "pgrep", "fuser", "grep", "wc"}) {
        auto const path = std::filesystem::path{"/tmp/programs"} / program;
        std::filesystem::create_directories(path.parent_path());
        write_file(path, "#!/bin/sh\nexit 0\n");
        std::filesystem::permissions(path, std::filesystem::perms{0755});
    }
    start_tools();
    std::vector<std::string> argv{"env"};
    argv.insert(argv.end(), inheritance.settings.begin(), inheritance.settings.end());
    argv.emplace_back(XPON_DAEMON);
    daemon = start(argv);
    ASSERT_TRUE(daemon->wait_ready());
    wait_until_serving();

    // The kernel's level, and a reload.
    set({{"syslog.kernel.level", "debug"}, {"syslog.file.level", "debug"}});
    expect_in_step();
    EXPECT_TRUE(wait_until_logged(log_file, LOG_DEBUG)) << "not reloaded";

    // A terminal comes and goes.
    Terminal terminal;
    EXPECT_TRUE(wait_until([&] { return has_output(terminal); }));
    EXPECT_TRUE(wait_until([&] {
        auto const token = unique_token();
        log(LOG_ERR, token);
        return terminal.wait_for(token, std::chrono::milliseconds{200});
    })) << "the terminal is not written to";
    // The daemon runs programs to find out that only syslog-ng has it open.
    terminal.close_slave();
    EXPECT_TRUE(wait_until([&] { return !has_output(terminal); })) << "nobody has it open any more";

    expect_one_life();
    report(fmt::format("{}\t{}\tnothing; no output is delayed", inheritance.what,
                       "inherited from whoever starts the daemon"));
}

INSTANTIATE_TEST_SUITE_P(
    , Inherited,
    testing::Values(
        Inheritance{"BashEnv", "BASH_ENV naming a script that exits", {"BASH_ENV=/tmp/script"}},
        Inheritance{"NoExec", "SHELLOPTS=noexec", {"SHELLOPTS=noexec"}},
        Inheritance{"Echo", "an exported function named echo", {"BASH_FUNC_echo%%=() { :; }"}},
        Inheritance{"Fuser", "an exported function named fuser", {"BASH_FUNC_fuser%%=() { :; }"}},
        Inheritance{"NoPath", "an unusable PATH", {"PATH=/nonexistent"}},
        Inheritance{"OtherPath", "a PATH that leads to other programs", {"PATH=/tmp/programs:/usr/bin:/bin"}},
        Inheritance{"Others",
                    "ENV, IFS, GLOBIGNORE, POSIXLY_CORRECT, LC_ALL",
                    {"ENV=/tmp/script", "IFS=/", "GLOBIGNORE=*", "POSIXLY_CORRECT=1", "LC_ALL=nonsense"}},
        Inheritance{"IgnoredSigchld", "an ignored SIGCHLD", {"--ignore-signal=CHLD"}}),
    [](auto const& tested) { return tested.param.name; });

} // namespace
} // namespace xpon::test
