#include "integration/board.hpp"

#include "core/failure.hpp"
#include "kit/fake_logger.hpp"
#include "log_config/syslog_settings_samples.hpp"
#include "xpon/config_writer/config_writer.hpp"
#include "xpon/log_config/syslog_ng/syslog_configurator.hpp"
#include "xpon/log_config/zlog_files/config_files.hpp"
#include "xpon/system_wrapper/system_wrapper.hpp"

namespace xpon::test {
namespace {

using core::Error;
using log_config::default_settings;
using log_config::set_receiver;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

class MainJob : public Board {};

TEST_F(MainJob, DefaultsReachEveryOutput) {
    start_everything();
    EXPECT_EQ(read_file(syslog_ng_conf), golden("syslog_ng/defaults.conf"));
    EXPECT_THAT(read_file(printk), StartsWith("4\n"));
    for (auto const& file : log_config::zlog_files) {
        EXPECT_EQ(read_file(zlog_folder + std::string{file.name}),
                  golden("zlog_defaults/" + std::string{file.name}))
            << file.name;
    }
    EXPECT_EQ(count_entries(zlog_folder), log_config::zlog_files.size()) << "nothing else, no temporary";
}

TEST_F(MainJob, MessagesGoWhereTheOperatorSaid) {
    UdpReceiver receiver;
    set({{"syslog.remote.2.address", "127.0.0.1"},
         {"syslog.remote.2.port", std::to_string(receiver.port())},
         {"syslog.remote.level", "warning"},
         {"syslog.file.level", "notice"},
         {"syslog.console.level", "error"},
         {"syslog.kernel.level", "debug"}});
    start_everything();
    EXPECT_THAT(read_file(printk), StartsWith("7\n"));

    struct Row {
        int priority;
        bool file, receiver, console;
    };
    // Emergencies pass no level filter.
    constexpr Row rows[] = {
        {LOG_DEBUG, false, false, false}, {LOG_INFO, false, false, false},  {LOG_NOTICE, true, false, false},
        {LOG_WARNING, true, true, false}, {LOG_ERR, true, true, true},      {LOG_CRIT, true, true, true},
        {LOG_ALERT, true, true, true},    {LOG_EMERG, false, false, false},
    };
    std::vector<std::string> tokens;
    for (auto const& row : rows) {
        tokens.push_back(unique_token());
        log(row.priority, tokens.back());
    }
    auto const last = unique_token(); // everything before it has been handled once it is there
    log(LOG_ERR, last);
    ASSERT_TRUE(wait_for_text(log_file, last));
    ASSERT_TRUE(wait_for_text(console, last));
    ASSERT_TRUE(receiver.wait_for(last));
    for (std::size_t index = 0; index < tokens.size(); ++index) {
        auto const arrived = [&](std::string const& text) {
            return text.find(tokens[index]) != std::string::npos;
        };
        EXPECT_EQ(arrived(read_file(log_file)), rows[index].file) << "priority " << rows[index].priority;
        EXPECT_EQ(arrived(receiver.received()), rows[index].receiver) << "priority " << rows[index].priority;
        EXPECT_EQ(arrived(read_file(console)), rows[index].console) << "priority " << rows[index].priority;
    }
}

TEST_F(MainJob, StartsWithoutABroker) {
    start_journald();
    start_syslog_ng();
    start_daemon();
    EXPECT_TRUE(wait_until_logged(log_file));
    EXPECT_EQ(stop_daemon(), 0);
}

TEST_F(MainJob, ABrokenLogConfigurationFileDoesNotKeepTheDaemonDown) {
    write_file(std::string{zlog_folder} + "LOG-CONFIG.conf", "[rules\n\x01 garbage >> nowhere");
    start_everything();
    EXPECT_EQ(read_file(std::string{zlog_folder} + "LOG-CONFIG.conf"),
              golden("zlog_defaults/LOG-CONFIG.conf"));
}

TEST_F(MainJob, ADatabaseThatIsAbsentIsMade) {
    ASSERT_FALSE(std::filesystem::exists(database));
    start_everything();
    EXPECT_TRUE(std::filesystem::exists(std::string{database} + "/running.db"));
}

TEST_F(MainJob, AReloadOfAnUndefinedFilterFailsWhileTheNewFileStaysAndTheOldTextRuns) {
    start_everything();
    auto const before = read_file(syslog_ng_conf);
    log_config::SyslogConfigurator configurator{
        std::make_shared<system_wrapper::SystemWrapper>(),
        std::make_unique<config_writer::ConfigWriter>(syslog_ng_conf)};
    auto settings = default_settings();
    settings.file.level = 7;
    EXPECT_THAT(configurator.apply_new_config(settings), IsError(Error::CommonError, "Failed reload syslog"));
    EXPECT_NE(read_file(syslog_ng_conf), before);
    EXPECT_THAT(read_file(syslog_ng_conf), HasSubstr("filter (f_7);"));
    auto const token = unique_token();
    log(LOG_ERR, token);
    EXPECT_TRUE(wait_for_text(log_file, token));
}

TEST_F(MainJob, TwoReceiversAlikeFailTheReload) {
    // The reason why the database refuses them.
    start_everything();
    log_config::SyslogConfigurator configurator{
        std::make_shared<system_wrapper::SystemWrapper>(),
        std::make_unique<config_writer::ConfigWriter>(syslog_ng_conf)};
    auto settings = default_settings();
    set_receiver(settings, 1, "127.0.0.1", 5514);
    set_receiver(settings, 2, "127.0.0.1", 5514);
    EXPECT_THAT(configurator.apply_new_config(settings), IsError(Error::CommonError, "Failed reload syslog"));
}

TEST_F(MainJob, TheNotificationsOfAnUndisturbedLife) {
    start_everything();
    EXPECT_EQ(stop_daemon(), 0);
    EXPECT_THAT(notified(), ElementsAre(starting, ready, stopping));
}

TEST_F(MainJob, TheDaemonLogsItsRoutineAndItsFailuresUnderItsName) {
    set({{"syslog.file.level", "debug"}});
    start_everything();
    EXPECT_EQ(stop_daemon(), 0);
    start_daemon(); // syslog-ng lets debug lines through by now
    EXPECT_TRUE(wait_for_text(log_file, "LOG-CFG        - Successfully generate "
                                        "\"/etc/zlog_modules_config/NETSERVE.conf\" "));
    EXPECT_TRUE(wait_for_text(log_file, "LOG-CFG        - Poller start"));
}

} // namespace
} // namespace xpon::test
