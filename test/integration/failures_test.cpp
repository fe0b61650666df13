#include "integration/board.hpp"
#include "kit/raw_database.hpp"

namespace xpon::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

class Failures : public Board {
  protected:
    static std::string database_file() { return std::string{database} + "/running.db"; }

    /// Launches the daemon, which has to fail, and returns its exit status. Again if it waits for its poller,
    /// which a start that fails at once can lead to.
    std::optional<int> fail_daemon(std::chrono::milliseconds deadline = default_deadline) {
        std::optional<int> status;
        for (int attempt = 1; !status && attempt <= 5; ++attempt) {
            launch_daemon();
            status = daemon->process.wait(deadline);
            if (!status && !waits_for_its_poller()) {
                break;
            }
        }
        return status;
    }

    /// Launches the daemon, which has to name the database's path and what is wrong with it.
    void expect_unusable(std::string const& path, std::string const& reason) {
        EXPECT_EQ(fail_daemon(), 1);
        EXPECT_THAT(notified(),
                    ElementsAre(starting, AllOf(StartsWith("STATUS=Exception on create CFGDB subsystem: "),
                                                HasSubstr(path), HasSubstr(reason))));
    }

    static bool journal_tells(std::string const& text) {
        return wait_until([&] { return journal().find(text) != std::string::npos; });
    }
};

TEST_F(Failures, AFileThatIsNotADatabaseIsNamedWithTheReason) {
    start_tools();
    std::filesystem::create_directories(database);
    write_file(database_file(), std::string(8192, 'x'));
    expect_unusable(database_file(), "not a database");
}

TEST_F(Failures, ADatabaseOfANewerSchemaIsNamedWithBothVersions) {
    start_tools();
    set({{"syslog.file.level", "debug"}});
    RawDatabase{database_file()}.run("PRAGMA user_version = 99");
    expect_unusable(database_file(), "99");
}

TEST_F(Failures, AFolderThatCannotBeCreatedIsNamed) {
    start_tools();
    write_file(std::string{database}, "a file in the way");
    expect_unusable(database, "");
}

TEST_F(Failures, AModuleLevelOutOfRangeStopsTheStart) {
    start_tools();
    set({{"module.switch.SELF", "debug"}});
    RawDatabase{database_file()}.run("UPDATE setting SET value = 9");
    EXPECT_EQ(fail_daemon(), 1);
    EXPECT_THAT(notified(), ElementsAre(starting, "STATUS=Failed generate zlog config files"));
    EXPECT_TRUE(journal_tells("module.switch.SELF"));
}

TEST_F(Failures, AKernelLevelOutOfRangeEndsTheService) {
    start_tools();
    set({{"syslog.kernel.level", "debug"}});
    RawDatabase{database_file()}.run("UPDATE setting SET value = 6");
    auto const before = read_file(printk);
    EXPECT_EQ(fail_daemon(), 1);
    EXPECT_THAT(notified(), ElementsAre(starting, ready, stopping));
    EXPECT_EQ(read_file(printk), before);
    EXPECT_TRUE(journal_tells("syslog.kernel.level"));
    EXPECT_TRUE(journal_tells("C API function returned -1, errno=22"));
    EXPECT_TRUE(journal_tells("Error: CommonError. Message: Config update for kernel logging config failed "
                              "(Error: ErrorCApi)."));
}

TEST_F(Failures, TextThatWouldBreakOutOfTheConfigurationIsRefused) {
    start_tools();
    set({{"syslog.remote.1.address", "127.0.0.1"}});
    RawDatabase{database_file()}.run("UPDATE setting SET value = '1\");@include'");
    auto const before = read_file(syslog_ng_conf);
    EXPECT_EQ(fail_daemon(), 1);
    EXPECT_EQ(read_file(syslog_ng_conf), before);
    EXPECT_TRUE(journal_tells("syslog.remote.1.address"));
}

TEST_F(Failures, AFailureInALateZlogFileIsReported) {
    // Late, so that the thread of the remote shell logger has begun by the time it is stopped.
    start_tools();
    std::filesystem::create_directory(std::string{zlog_folder} + "SWITCH.conf");
    EXPECT_EQ(fail_daemon(), 1);
    EXPECT_THAT(notified(), ElementsAre(starting, "STATUS=Failed generate zlog config files"));
    EXPECT_TRUE(journal_tells("Failed create \"/etc/zlog_modules_config/SWITCH.conf\" with: Failed write "
                              "config file for module 16"));
}

TEST_F(Failures, AFailureInALateZlogFileAfterARestartEndsTheDaemon) {
    start_tools();
    start_daemon();
    ASSERT_TRUE(wait_until_logged(log_file));
    std::filesystem::remove(std::string{zlog_folder} + "SWITCH.conf");
    std::filesystem::create_directory(std::string{zlog_folder} + "SWITCH.conf");
    signal_daemon(SIGHUP);
    EXPECT_EQ(daemon->process.wait(), 1);
    EXPECT_THAT(notified(),
                ElementsAre(starting, ready, stopping, starting, "STATUS=Failed generate zlog config files"));
    EXPECT_EQ(read_file(std::string{zlog_folder} + "SNMPD-CONFIG.conf"),
              golden("zlog_defaults/SNMPD-CONFIG.conf"));
}

TEST_F(Failures, WithoutSyslogNgTheServiceEndsAtOnce) {
    start_journald();
    EXPECT_EQ(fail_daemon(), 1);
    EXPECT_THAT(notified(), ElementsAre(starting, ready, stopping));
    EXPECT_TRUE(journal_tells("Error: CommonError. Message: Failed reload syslog."));
    EXPECT_EQ(read_file(syslog_ng_conf), golden("syslog_ng/defaults.conf")) << "written before the reload";
}

TEST_F(Failures, AStoppedSyslogNgFailsTheServiceInsteadOfHangingIt) {
    start_tools();
    syslog_ng->process.kill(SIGSTOP);
    EXPECT_EQ(fail_daemon(std::chrono::seconds{45}), 1);
    EXPECT_THAT(notified(), ElementsAre(starting, ready, stopping));
    EXPECT_TRUE(journal_tells("Error: CommonError. Message: Failed reload syslog."));
    syslog_ng->process.kill(SIGCONT);
}

TEST_F(Failures, ALockThatOutlastsFiveSecondsIsReported) {
    start_tools();
    set({{"syslog.file.level", "debug"}});
    RawDatabase writer{database_file()};
    writer.run("PRAGMA locking_mode = EXCLUSIVE");
    writer.run("BEGIN EXCLUSIVE");
    expect_unusable(database_file(), "locked");
}

TEST_F(Failures, AnUnwatchableTerminalFolderEndsTheProcessAbnormally) {
    start_tools();
    ASSERT_EQ(std::system("umount -l /dev/pts; umount -l /boot/dev/pts; rmdir /dev/pts"), 0);
    EXPECT_EQ(fail_daemon(), 128 + SIGABRT);
    EXPECT_THAT(notified(), ElementsAre(starting));
}

} // namespace
} // namespace xpon::test
