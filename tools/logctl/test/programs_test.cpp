// Which programs logctl runs: the system's own, never those of the working directory.

#include <algorithm>
#include <array>
#include <sys/mount.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/report.hpp"
#include "logctl.hpp"

namespace xpon::logctl {
namespace {

using testing::HasSubstr;

constexpr std::array planted_names{
    "diff", "syslog-ng-ctl", "syslog-ng", "systemctl", "systemd-run", "unshare", "sh", "mount", "chroot"};

/// A working directory with programs that leave a trace when they run.
class Programs : public testing::TestWithParam<std::string> {
  protected:
    void SetUp() override {
        std::filesystem::create_directory(folder);
        for (auto const* name : planted_names) {
            test::write_file(folder / name, "#!/bin/bash\necho \"$0\" >> " + trace.string() + "\n");
            std::filesystem::permissions(folder / name, std::filesystem::perms::owner_all);
        }
        logctl.prefix = {"env", "--chdir", folder};
        if (GetParam() == "unset") {
            logctl.prefix.insert(logctl.prefix.end(), {"--unset", "PATH"});
        } else {
            logctl.prefix.push_back(GetParam());
        }
        EXPECT_EQ(logctl({"set", "syslog.rsh.level=debug"}), silence);
    }

    void TearDown() override {
        std::for_each(hidden.rbegin(), hidden.rend(), [](auto const& path) { umount(path.c_str()); });
        std::filesystem::remove("/run/systemd/private");
        std::filesystem::remove("/run/systemd/system");
    }

    /// Takes a program away from this sandbox, wherever it is.
    void hide(std::string const& name) {
        for (std::filesystem::path const where : {"/usr/sbin", "/usr/bin", "/sbin", "/bin"}) {
            auto const path = where / name;
            if (access(path.c_str(), X_OK) == 0) {
                ASSERT_EQ(mount("/dev/null", path.c_str(), nullptr, MS_BIND, nullptr), 0) << path;
                hidden.push_back(path);
            }
        }
    }

    std::string trace_text() const { return std::filesystem::exists(trace) ? test::read_file(trace) : ""; }

    Logctl logctl;
    std::filesystem::path folder = logctl.scratch / "working directory";
    std::filesystem::path trace = logctl.scratch / "trace";
    std::vector<std::filesystem::path> hidden; ///< in this order
};

TEST_P(Programs, OfTheWorkingDirectoryAreNeverRun) {
    auto const before = logctl({"preview", "SNMP", "--diff"});
    EXPECT_EQ(before.status, 0) << before.err;
    auto const check = logctl({"check"});
    EXPECT_THAT(check.out, HasSubstr("syslog-ng: starts with the generated text\n")) << check.err;

    for (auto const* name : {"syslog-ng-ctl", "syslog-ng", "diff", "systemctl", "systemd-run"}) {
        hide(name);
    }
    constexpr char const* nowhere = " is missing: it is in none of /usr/sbin, /usr/bin, /sbin, /bin\n";
    EXPECT_EQ(logctl({"preview", "SNMP", "--diff"}), (Outcome{1, "", std::string{"logctl: diff"} + nowhere}));
    EXPECT_THAT(logctl({"check"}).out,
                HasSubstr(std::string{"the dry run could not be done: syslog-ng"} + nowhere));
    EXPECT_THAT(
        logctl({"status"}).out,
        HasSubstr("syslog-ng-ctl is missing: it is in none of /usr/sbin, /usr/bin, /sbin, /bin; run: "));
    // As where systemd runs, for a timer that nobody can set.
    std::filesystem::create_directories("/run/systemd/system");
    test::write_file("/run/systemd/private", "");
    EXPECT_EQ(logctl({"commit-confirm", "10", "syslog.rsh.level=info"}).status, 0);
    EXPECT_EQ(logctl({"confirm"}), silence);
    EXPECT_EQ(trace_text(), "");
    test::report(
        "planted programs\tthe system's own are missing, others lie in logctl's working directory, " +
        (GetParam() == "unset" ? std::string{"no PATH"} : GetParam()) +
        "\tnone of them is run; the missing one is named");
}

TEST(ProgramsOfAParentThatIgnoresSigchld, StillHaveAnExitStatus) {
    Logctl logctl;
    EXPECT_EQ(logctl({"set", "syslog.rsh.level=debug"}), silence);
    auto const expected = logctl({"preview", "SNMP", "--diff"});
    EXPECT_EQ(expected.status, 0) << expected.err;
    logctl.prefix = {"env", "--ignore-signal=CHLD"};
    EXPECT_EQ(logctl({"preview", "SNMP", "--diff"}), expected);
}

INSTANTIATE_TEST_SUITE_P(Path, Programs, testing::Values("PATH=", "PATH=.", "PATH=:/usr/bin", "unset"),
                         [](auto const& test) { return "Case" + std::to_string(test.index); });

} // namespace
} // namespace xpon::logctl
