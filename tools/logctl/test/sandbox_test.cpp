// What needs the board's own paths or a terminal.

#include <array>
#include <pty.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/unique_fd.hpp"
#include "kit/golden.hpp"
#include "kit/report.hpp"
#include "logctl.hpp"

namespace xpon::logctl {
namespace {

TEST(BoardPaths, TheDatabaseIsTheBoardsUnlessAnotherIsGiven) {
    Logctl const logctl;
    EXPECT_EQ(logctl.run({"set", "syslog.rsh.level=debug"}), not_applied_now);
    struct stat status{};
    ASSERT_EQ(stat("/var/lib/xpon/cfgdb/running.db", &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0660U);
    EXPECT_EQ(logctl.run({"show", "syslog.rsh"}),
              logctl.run({"show", "syslog.rsh", "--database", "/var/lib/xpon/cfgdb"}));
}

TEST(BoardPaths, APreviewIsComparedWithTheDisk) {
    Logctl const logctl;
    EXPECT_EQ(logctl({"set", "module.netserve.SELF=critical"}), silence);
    std::string const path = "/etc/zlog_modules_config/NETSERVE.conf";
    auto const wanted = logctl({"preview", "NETSERVE"}).out;
    test::write_file(path, wanted);
    EXPECT_EQ(logctl({"preview", "NETSERVE", "--diff"}), silence);
    EXPECT_EQ(logctl({"set", "module.netserve.SELF=error"}), silence);
    EXPECT_EQ(logctl({"preview", "NETSERVE", "--diff"}), printed(R"(
--- /etc/zlog_modules_config/NETSERVE.conf
+++ wanted
@@ -7,6 +7,7 @@
 
 [rules]
 NETSERVE.=FATAL >syslog, LOG_LOCAL0; for_fatal
+NETSERVE.=ERROR >syslog, LOG_LOCAL0;
 NETSERVE_IPC.=FATAL >syslog, LOG_LOCAL0; for_fatal
 NETSERVE_IPC.=ERROR >syslog, LOG_LOCAL0;
 NETSERVE_IPC.=WARN >syslog, LOG_LOCAL0; for_info
)"));
    std::filesystem::remove(path);
    EXPECT_THAT(logctl({"preview", "NETSERVE", "--diff"}).out,
                testing::StartsWith("--- " + path + "\n+++ wanted\n@@ -0,0 +1,14 @@\n+[global]\n"));
}

TEST(BoardPaths, ThePreviewOfSyslogNgHasTheTerminalsThatTheFileHas) {
    Logctl const logctl;
    EXPECT_EQ(logctl({"reset", "*"}), silence);
    EXPECT_EQ(logctl({"preview", "syslog-ng"}), (Outcome{0, test::golden("syslog_ng/defaults.conf"), ""}));
    test::write_file("/etc/syslog-ng/syslog-ng.conf",
                     "destination d_rsh_3 {\n    file(\"/dev/pts/3\");\n};\n");
    auto const with_terminal = logctl({"preview", "syslog-ng.conf"});
    EXPECT_EQ(with_terminal.status, 0);
    EXPECT_THAT(with_terminal.out, testing::AllOf(testing::HasSubstr("    file(\"/dev/pts/3\");\n"),
                                                  testing::HasSubstr("    destination(d_rsh_3);\n")));
}

TEST(Trials, AreNotUndoneWhereTheBootCannotBeRead) {
    Logctl const logctl;
    EXPECT_EQ(logctl({"commit-confirm", "10", "syslog.rsh.level=debug"}).status, 0);
    constexpr char const* boot_id = "/proc/sys/kernel/random/boot_id";
    ASSERT_EQ(mount("/dev/null", boot_id, nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(logctl({"commit-confirm", "--recover"}), silence);
    EXPECT_EQ(umount(boot_id), 0);
    EXPECT_EQ(cfgdb::stored_settings(logctl.database).value().size(), 1U);
    EXPECT_EQ(logctl({"confirm"}), silence);
    test::report("a trial looked at where /proc has no boot_id\tlogctl commit-confirm --recover\tit stays");
}

/// What the program shows on a terminal.
std::string shown(Logctl const& logctl, std::vector<std::string> const& environment) {
    int controller = -1;
    int terminal = -1;
    std::array<char, 64> name{};
    EXPECT_EQ(openpty(&controller, &terminal, name.data(), nullptr, nullptr), 0);
    core::UniqueFd const ours{controller};
    core::UniqueFd theirs{terminal}; // open until all is read, or what was written would be lost
    test::ChildProcess process{{.argv = {LOGCTL_PROGRAM, "--database", logctl.database.string(), "show",
                                         "syslog.rsh", "syslog.kernel", "syslog.console"},
                                .environment = environment,
                                .output = name.data()}};
    EXPECT_EQ(process.wait(), 0);
    std::string text;
    std::array<char, 4096> buffer{};
    while (test::wait_readable(ours.get(), std::chrono::milliseconds{0})) {
        auto const length = read(ours.get(), buffer.data(), buffer.size());
        text.append(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    }
    std::erase(text, '\r'); // the terminal's own
    return text;
}

TEST(Terminal, SeesChangedValuesInColourUnlessItsUserWantsNone) {
    Logctl const logctl;
    EXPECT_EQ(logctl({"set", "syslog.rsh.level=debug"}), silence);
    EXPECT_EQ(shown(logctl, {"NO_COLOR="}),
              text("\n"
                   "PATH                  \x1b[1mVALUE  \x1b[0m  DEFAULT  STORED\n"
                   "syslog.console.level  error    error    default\n"
                   "syslog.kernel.level   warning  warning  default\n"
                   "syslog.rsh.level      \x1b[33mdebug  \x1b[0m  notice   database\n"));
    EXPECT_EQ(shown(logctl, {"NO_COLOR=1"}),
              logctl({"show", "syslog.rsh", "syslog.kernel", "syslog.console"}).out);
}

} // namespace
} // namespace xpon::logctl
