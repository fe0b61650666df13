// What the package does with the board's paths at an installation and at a boot.

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "kit/child_process.hpp"
#include "kit/golden.hpp"
#include "kit/report.hpp"
#include "kit/scratch_folder.hpp"

namespace xpon::test {
namespace {

constexpr char const* conf = "/etc/syslog-ng/syslog-ng.conf";
constexpr char const* kept = "/etc/syslog-ng/syslog-ng.conf.before-log-config";
constexpr char const* dhcpd_folder = "/tmp/dhcpd_log";

int configure() {
    return ChildProcess{{.argv = {"sh", XPON_DEBIAN "/log-config.postinst", "configure"}}}.wait().value_or(
        -1);
}

TEST(PostInstallation, KeepsTheFirstConfigurationOfSyslogNg) {
    std::filesystem::remove(conf);
    std::filesystem::remove(kept);
    EXPECT_EQ(configure(), 0); // without one there is nothing to keep
    EXPECT_FALSE(std::filesystem::exists(kept));
    write_file(conf, golden("syslog_ng/defaults.conf"));
    EXPECT_EQ(configure(), 0); // the daemon's own text is nothing to go back to
    EXPECT_FALSE(std::filesystem::exists(kept));
    write_file(conf, "stock\n");
    EXPECT_EQ(configure(), 0);
    EXPECT_EQ(read_file(kept), "stock\n");
    write_file(conf, "generated\n");
    EXPECT_EQ(configure(), 0); // an upgrade
    EXPECT_EQ(read_file(kept), "stock\n");
    report("syslog-ng's own configuration\tkept when the package is configured, which is after syslog-ng "
           "has it also in one run of apt; upgraded\tthe first one is what a removal puts back");
}

struct Planted {
    char const* what;
    std::function<void()> plant;
};

void PrintTo(Planted const& planted, std::ostream* out) {
    *out << planted.what;
}

class DhcpdFolder : public testing::TestWithParam<Planted> {
  protected:
    void SetUp() override { std::filesystem::remove_all(dhcpd_folder); }
};

TEST_P(DhcpdFolder, IsRootsOwnWhateverStoodThere) {
    write_file("/etc/victim", "untouched");
    GetParam().plant();
    EXPECT_EQ(configure(), 0);
    struct stat status{};
    ASSERT_EQ(lstat(dhcpd_folder, &status), 0);
    EXPECT_TRUE(S_ISDIR(status.st_mode));
    EXPECT_EQ(status.st_mode & 07777U, 0755U);
    EXPECT_EQ(status.st_uid, 0U);
    EXPECT_TRUE(std::filesystem::is_empty(dhcpd_folder));
    EXPECT_EQ(read_file("/etc/victim"), "untouched");
    write_file(std::filesystem::path{dhcpd_folder} / "DHCPD.log", "line");
    EXPECT_EQ(configure(), 0); // from then on it stays, with what is in it
    EXPECT_FALSE(std::filesystem::is_empty(dhcpd_folder));
    report(std::string{"/tmp/dhcpd_log planted\t"} + GetParam().what +
           "\tan installation makes it root's own, empty, 0755");
}

/// A folder that anybody may write, or of somebody else where this user can give it away.
void plant_folder() {
    std::filesystem::create_directory(dhcpd_folder);
    std::filesystem::create_symlink("/etc/victim", std::filesystem::path{dhcpd_folder} / "DHCPD.log");
    if (chown(dhcpd_folder, 1234, 1234) != 0) {
        std::filesystem::permissions(dhcpd_folder, std::filesystem::perms::all);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Packaging, DhcpdFolder,
    testing::Values(Planted{"nothing", [] {}},
                    Planted{"a folder of another user with a link in it", plant_folder},
                    Planted{"a link to a folder",
                            [] {
                                std::filesystem::create_directory("/var/log/victim");
                                std::filesystem::create_directory_symlink("/var/log/victim", dhcpd_folder);
                            }},
                    Planted{"a link to nowhere",
                            [] { std::filesystem::create_symlink("/nonexistent", dhcpd_folder); }},
                    Planted{"a file", [] { write_file(dhcpd_folder, ""); }}),
    [](auto const& test) { return "Case" + std::to_string(test.index); });

/// systemd-tmpfiles with the package's file, where there is the group.
class Tmpfiles : public testing::Test {
  protected:
    static constexpr gid_t group = 4242;

    void SetUp() override {
        write_file("/run/given", "");
        if (chown("/run/given", 0, group) != 0) {
            GTEST_SKIP() << "an ordinary user has no group to give files to";
        }
        groups = read_file("/etc/group");
        write_file("/etc/group", groups + "xpon:x:4242:\n");
    }
    void TearDown() override {
        if (!groups.empty()) {
            write_file("/etc/group", groups);
        }
    }

    static int run(std::vector<std::string> const& options) {
        std::vector<std::string> argv{"systemd-tmpfiles"};
        argv.insert(argv.end(), options.begin(), options.end());
        argv.emplace_back(XPON_PACKAGING "/tmpfiles.d/log-config.conf");
        return ChildProcess{{.argv = argv}}.wait().value_or(-1);
    }

    static std::string rights(std::string const& path) {
        struct stat status{};
        return lstat(path.c_str(), &status) != 0 ? "missing"
               : S_ISLNK(status.st_mode)
                   ? "a link"
                   : fmt::format("{:o} {}:{}", status.st_mode & 07777U, status.st_uid, status.st_gid);
    }

    std::string groups; ///< /etc/group, where it was changed
};

TEST_F(Tmpfiles, GiveTheGroupADatabaseThatIsOlderAndKeepItsModes) {
    std::string const folder = "/var/lib/xpon/cfgdb";
    std::filesystem::remove_all(folder);
    EXPECT_EQ(run({"--create"}), 0);
    EXPECT_EQ(rights(folder), "2770 0:4242");
    write_file(folder + "/running.db", "");
    write_file(folder + "/running.db-wal", "");
    for (auto const& [path, mode] : std::map<std::string, mode_t>{
             {folder, 02775}, {folder + "/running.db", 0664}, {folder + "/running.db-wal", 0664}}) {
        ASSERT_EQ(chown(path.c_str(), 0, 0), 0);
        ASSERT_EQ(chmod(path.c_str(), mode), 0);
    }
    EXPECT_EQ(run({"--create"}), 0);
    EXPECT_EQ(rights(folder), "2775 0:4242");
    EXPECT_EQ(rights(folder + "/running.db"), "664 0:4242");
    EXPECT_EQ(rights(folder + "/running.db-wal"), "664 0:4242");
    report("database made before there was the group xpon\tsystemd-tmpfiles at an installation or a "
           "boot\tthe group has it, and others who may read it still may");
}

TEST_F(Tmpfiles, MakeTheFolderOfDhcpdsLogAnewAtBoot) {
    std::filesystem::remove_all(dhcpd_folder);
    std::filesystem::create_directory("/var/log/victim");
    write_file("/var/log/victim/file", "");
    std::filesystem::create_directory_symlink("/var/log/victim", dhcpd_folder);
    EXPECT_EQ(run({"--create", "--remove", "--boot"}), 0);
    EXPECT_EQ(rights(dhcpd_folder), "755 0:0");
    EXPECT_TRUE(std::filesystem::exists("/var/log/victim/file"));
    write_file(std::string{dhcpd_folder} + "/DHCPD.log", "");
    EXPECT_EQ(run({"--create", "--remove"}), 0); // no boot
    EXPECT_TRUE(std::filesystem::exists(std::string{dhcpd_folder} + "/DHCPD.log"));
}

} // namespace
} // namespace xpon::test
