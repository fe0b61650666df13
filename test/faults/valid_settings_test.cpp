// Whatever value a setting may have, syslog-ng loads the text that is made of it. XPON_ROUNDS sets the number
// of random configurations, XPON_SEED the random numbers.

#include "integration/followed_board.hpp"
#include "kit/random.hpp"
#include "kit/report.hpp"
#include "xpon/config_writer/config_writer.hpp"
#include "xpon/log_config/outputs/read_syslog_settings.hpp"
#include "xpon/log_config/syslog_ng/syslog_configurator.hpp"
#include "xpon/system_wrapper/system_wrapper.hpp"

namespace xpon::test {
namespace {

class ValidSettings : public FollowedBoard {
  protected:
    std::string random_folder() {
        static constexpr std::string_view allowed =
            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._/-";
        std::string path = "/run/x"; // private; below it nothing can lead out, since /run/x... does not exist
        for (auto length = below(random, 24); length > 0; --length) {
            path += allowed.at(below(random, allowed.size()));
        }
        return path + "/";
    }

    std::string random_address() {
        static constexpr std::array<std::uint32_t, 6> special{0,          1,          0x7F000001,
                                                              0xE0000001, 0xFFFFFFFF, 0x0A000001};
        auto const bits = below(random, 3) == 0 ? special.at(below(random, special.size()))
                                                : static_cast<std::uint32_t>(random());
        return fmt::format("{}.{}.{}.{}", bits >> 24, bits >> 16 & 0xFF, bits >> 8 & 0xFF, bits & 0xFF);
    }

    std::string random_value(cfgdb::Setting const& setting) {
        switch (setting.kind) {
        case cfgdb::Kind::Level:
            return std::to_string(below(random, 6));
        case cfgdb::Kind::Folder:
            return random_folder();
        case cfgdb::Kind::Size:
            return std::to_string(65536 + below(random, 1073741824 - 65536 + 1));
        case cfgdb::Kind::Address:
            return random_address();
        case cfgdb::Kind::Port:
            return std::to_string(1 + below(random, 65535));
        }
        return {};
    }

    Random random = seeded();
};

TEST_F(ValidSettings, AlwaysMakeATextThatSyslogNgLoads) {
    start_journald();
    start_syslog_ng();
    log_config::SyslogConfigurator configurator{
        std::make_shared<system_wrapper::SystemWrapper>(),
        std::make_unique<config_writer::ConfigWriter>(syslog_ng_conf)};
    std::optional<Wanted> wanted;
    int const configurations = rounds(40);
    int loaded = 0;
    for (int number = 0; number < configurations && !HasFailure(); ++number) {
        cfgdb::Transaction transaction;
        for (auto const& setting : cfgdb::settings()) {
            if (setting.path.starts_with("syslog.")) {
                // Some of them nobody may set any more, but they can be stored.
                ASSERT_THAT(transaction.put_back(setting.path, random_value(setting)), IsOk());
            }
        }
        auto const committed = transaction.commit(database);
        if (committed.has_error()) {
            // Two receivers may not be the same.
            EXPECT_THAT(committed,
                        IsError(core::Error::InvalidInputArg, testing::HasSubstr("syslog.remote.")));
            continue;
        }
        if (!wanted) {
            wanted.emplace(database);
        }
        for (std::int64_t terminal = 0; terminal < 16; ++terminal) {
            auto const action = below(random, 2) == 0 ? log_config::RemoteLoggerAction::Add
                                                      : log_config::RemoteLoggerAction::Remove;
            EXPECT_THAT(configurator.update_remote_logging({terminal, action}), IsOk());
        }
        auto const settings =
            log_config::read_syslog_settings(wanted->db(), [](int status) -> core::Result<void> {
                EXPECT_EQ(status, 0);
                return core::success();
            });
        EXPECT_THAT(configurator.apply_new_config(settings.value()), IsOk()) << read_file(syslog_ng_conf);
        ++loaded;
    }
    report(fmt::format(
        "random valid settings\t{} configurations\t{} loaded by one real syslog-ng; in the others two "
        "receivers were the same, which is refused",
        configurations, loaded));
}

} // namespace
} // namespace xpon::test
