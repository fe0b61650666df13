// Who may write what logctl is responsible for: the log file's folder, the database.

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/report.hpp"
#include "logctl.hpp"

namespace xpon::logctl {
namespace {

using testing::HasSubstr;

constexpr char const* whoever =
    ", and whoever can replace a file there decides what syslog-ng writes to as root";

/// What is said of a setting that is refused.
Outcome refusal(std::string const& folder, std::string const& flaw) {
    return refused("syslog.file.path: \"" + folder +
                   "\" is not allowed; it must be a folder that only root can write to, such as /var/log/: " +
                   flaw + whoever);
}

/// A folder that only root can write to, with those in it that others may.
class LogFolder : public testing::Test {
  protected:
    void SetUp() override {
        std::filesystem::create_directories("/run/own/open");
        std::filesystem::create_directories("/run/own/shared");
        ASSERT_EQ(chmod("/run/own/open", 01777), 0);
        ASSERT_EQ(chmod("/run/own/shared", 0775), 0);
        std::filesystem::create_directory_symlink("../../tmp", "/run/own/link");
        std::filesystem::create_directory_symlink("/run/own/link", "/run/own/links");
    }
    void TearDown() override { std::filesystem::remove_all("/run/own"); }

    Logctl logctl;
};

TEST_F(LogFolder, ThatOthersCanWriteToIsRefused) {
    std::pair<std::string, std::string> const cases[] = {
        {"/tmp/", "users other than root can write to /tmp"},
        {"/tmp/log/", "users other than root can write to /tmp"},
        {"/run/own/open/log/", "users other than root can write to /run/own/open"},
        {"/run/own/shared/", "users other than root can write to /run/own/shared"},
        {"/run/own/link/log/", "users other than root can write to /tmp"},
        {"/run/own/links/", "users other than root can write to /tmp"},
        {"/run/own/open/../", "users other than root can write to /run/own/open"},
        {"/etc/passwd/", "/etc/passwd is not a folder"},
    };
    EXPECT_EQ(logctl({"set", "syslog.file.level=debug", "syslog.file.path=/run/own/log/"}), silence);
    auto const file = logctl.scratch / "settings.json";
    for (auto const& [folder, flaw] : cases) {
        auto const expected = refusal(folder, flaw);
        EXPECT_EQ(logctl({"set", "syslog.rsh.level=debug", "syslog.file.path=" + folder}), expected);
        EXPECT_EQ(logctl({"set", "--dry-run", "syslog.file.path=" + folder}), expected);
        EXPECT_EQ(logctl({"commit-confirm", "1", "syslog.file.path=" + folder}), expected);
        test::write_file(file, R"({"version": 1, "settings": {"syslog.file.path": ")" + folder + "\"}}");
        EXPECT_EQ(logctl({"import", file}), expected);
    }
    if (std::filesystem::create_directory("/run/own/other"); chown("/run/own/other", 1234, 0) == 0) {
        EXPECT_EQ(logctl({"set", "syslog.file.path=/run/own/other/"}),
                  refusal("/run/own/other/", "/run/own/other belongs to user 1234"));
    }
    auto const stored = cfgdb::stored_settings(logctl.database).value();
    EXPECT_EQ(stored.size(), 2U); // as at first
    test::report(
        "a log folder that users other than root can write to\tset, import, commit-confirm and rollback; "
        "sticky, of a group, by links, by \"..\"\trefused with the folder that is to blame");
}

TEST_F(LogFolder, ThatBecameWritableIsReportedAndNotRestored) {
    std::filesystem::create_directory("/run/own/log");
    EXPECT_EQ(logctl.run({"set", "syslog.file.path=/run/own/log/"}), not_applied_now);
    ASSERT_EQ(chmod("/run/own/log", 0777), 0);
    auto const unsafe = std::string{"users other than root can write to /run/own/log"} + whoever + "; ";
    auto const problem =
        unsafe + "use a folder that only root can write to: logctl set syslog.file.path=FOLDER";
    auto const check = logctl.run({"check"});
    EXPECT_EQ(check.status, 1);
    EXPECT_THAT(check.out,
                testing::StartsWith("settings: 1 stored, 1 wrong\n  syslog.file.path: " + problem + "\n"));
    auto const status = logctl.run({"status"});
    EXPECT_EQ(status.status, 1);
    EXPECT_THAT(status.out, testing::ContainsRegex("\nsyslog-ng +unsafe +missing +down +.*; " + unsafe +
                                                   "run: logctl reset syslog.file.path; "));
    EXPECT_EQ(logctl.run({"set", "syslog.file.path=/run/own/"}), not_applied_now);
    auto const back = logctl.run({"rollback", "1"});
    EXPECT_EQ(back, refusal("/run/own/log/", "users other than root can write to /run/own/log"));
    EXPECT_EQ(logctl.run({"reset", "syslog.file.path"}), not_applied_now);
    EXPECT_THAT(logctl.run({"check"}).out, testing::StartsWith("settings: 0 stored, all valid\n"));
}

class Mend : public testing::Test {
  protected:
    static constexpr gid_t group = 4242;

    void SetUp() override {
        EXPECT_EQ(logctl({"set", "syslog.rsh.level=debug"}), silence);
        if (chown(logctl.file.c_str(), static_cast<uid_t>(-1), group) != 0) {
            GTEST_SKIP() << "an ordinary user has no group to give files to";
        }
        // As made before there was the group: root's, but for the modes of another who may not read.
        for (auto const* name :
             {"", "running.db", "running.db-wal", "running.db-shm", "running.db.doorbell"}) {
            ASSERT_EQ(chown((logctl.database / name).c_str(), 0, 0), 0) << name;
        }
        ASSERT_EQ(chmod(logctl.database.c_str(), 0750), 0);
        ASSERT_EQ(chmod(logctl.file.c_str(), 0600), 0);
        groups = test::read_file("/etc/group");
        test::write_file("/etc/group", groups + "xpon:x:4242:\n");
    }
    void TearDown() override {
        if (!groups.empty()) {
            test::write_file("/etc/group", groups);
        }
    }

    std::string rights(std::string const& name) const {
        struct stat status{};
        EXPECT_EQ(stat((logctl.database / name).c_str(), &status), 0) << name;
        return fmt::format("{:o} {}:{}", status.st_mode & 07777U, status.st_uid, status.st_gid);
    }

    Logctl logctl;
    std::string groups; ///< /etc/group, where it was changed
};

TEST_F(Mend, GivesTheDatabaseToTheGroupAndSaysSo) {
    auto const folder = logctl.database.string();
    auto const check = logctl({"check"});
    EXPECT_EQ(check.status, 1);
    EXPECT_THAT(
        check.out,
        HasSubstr("files: 5 wrong\n  " + folder +
                  ": belongs to group root, mode 0750; it must be group xpon, mode 2770; mend it, as root: "
                  "logctl check --mend\n  " +
                  folder +
                  "/running.db: belongs to group root, mode 0600; it must be group xpon, mode 0660; "));
    auto const mended = logctl({"check", "--mend"});
    EXPECT_EQ(mended.status, 0) << mended.out;
    EXPECT_THAT(mended.err, HasSubstr("logctl: mended: " + folder +
                                      "/running.db.doorbell: belongs to group root, mode "
                                      "0660; it must be group xpon, mode 0660\n"));
    EXPECT_EQ(rights(""), "2770 0:4242");
    for (auto const* name : {"running.db", "running.db-wal", "running.db-shm", "running.db.doorbell"}) {
        EXPECT_EQ(rights(name), "660 0:4242") << name;
    }
    EXPECT_EQ(logctl({"check"}).status, 0);
    logctl.prefix = {"setpriv", "--reuid", "1234", "--regid", "1234", "--groups", "4242"};
    std::filesystem::permissions(logctl.scratch.path(), std::filesystem::perms::all);
    EXPECT_EQ(logctl({"set", "syslog.rsh.level=error"}), silence);
    test::report("database made before there was the group xpon\tfolder and files are root's, one of mode "
                 "0600\tlogctl check names each; with --mend a member of the group can change settings");
}

TEST_F(Mend, KeepsWhatOthersMayRead) {
    ASSERT_EQ(chmod(logctl.database.c_str(), 0755), 0);
    EXPECT_EQ(logctl({"check", "--mend"}).status, 0);
    EXPECT_EQ(rights(""), "2775 0:4242");
    EXPECT_EQ(rights("running.db"), "664 0:4242");
}

TEST_F(Mend, LeavesOtherFilesAlone) {
    auto const victim = logctl.scratch / "victim";
    test::write_file(victim, "");
    ASSERT_EQ(chmod(victim.c_str(), 0600), 0);
    std::filesystem::remove(logctl.database / "running.db.doorbell");
    std::filesystem::create_symlink(victim, logctl.database / "running.db.doorbell");
    auto const mended = logctl({"check", "--mend"});
    EXPECT_EQ(mended.status, 1);
    EXPECT_THAT(mended.out,
                HasSubstr("cannot be mended (" + logctl.database.string() +
                          "/running.db.doorbell: neither a folder nor a regular file with one name; inspect "
                          "and remove it)\n"));
    struct stat status{};
    ASSERT_EQ(stat(victim.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

} // namespace
} // namespace xpon::logctl
