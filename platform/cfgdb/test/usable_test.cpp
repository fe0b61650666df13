#include "xpon/cfgdb/usable.hpp"

#include <gmock/gmock.h>

#include "support.hpp"

namespace xpon::cfgdb {
namespace {

using core::Error;
using test::IsError;
using test::IsOk;
using testing::ElementsAre;

TEST(Values, OfReceiversAreAddressesOfHosts) {
    auto const& setting = *find_setting("syslog.remote.2.address");
    for (auto const* const good : {"0.0.0.0", "1.0.0.0", "127.0.0.1", "192.0.2.255", "223.255.255.255",
                                   "240.0.0.1", "255.255.255.254"}) {
        EXPECT_EQ(flaw_of(setting, good), std::nullopt) << good;
    }
    EXPECT_EQ(flaw_of(setting, "0.0.0.1"), "0.0.0.1 is no address of a host");
    EXPECT_EQ(flaw_of(setting, "0.255.255.255"), "0.255.255.255 is no address of a host");
    EXPECT_EQ(flaw_of(setting, "224.0.0.0"), "224.0.0.0 is a multicast address");
    EXPECT_EQ(flaw_of(setting, "239.255.255.255"), "239.255.255.255 is a multicast address");
    EXPECT_EQ(flaw_of(setting, "255.255.255.255"), "255.255.255.255 is the broadcast address");
}

TEST(Values, OfTheLogFolderSayWhereItIs) {
    auto const& setting = *find_setting("syslog.file.path");
    for (auto const* const good : {"/var/log/", "/processes/", "/usr/device/", "/var/..log/"}) {
        EXPECT_EQ(flaw_of(setting, good), std::nullopt) << good;
    }
    EXPECT_EQ(flaw_of(setting, "/usr/../var/log/"), "\"..\" hides where the log is written to");
    EXPECT_EQ(flaw_of(setting, "/sys/"), "/sys holds no log files");
    EXPECT_EQ(flaw_of(setting, "//sys/./x/"), "/sys holds no log files");
}

TEST(Values, WithoutAPlaceOrAnAddressHaveNoFlaw) {
    EXPECT_EQ(flaw_of(*find_setting("syslog.remote.2.port"), "1"), std::nullopt);
    EXPECT_EQ(flaw_of(*find_setting("syslog.rsh.level"), "debug"), std::nullopt);
}

TEST(Values, ThatCannotWorkAreRefusedButPutBack) {
    test::ScratchFolder const scratch;
    auto const folder = scratch / "db";
    change(folder, {{"syslog.remote.1.address", "192.0.2.1"}});
    auto transaction = wish({{"syslog.remote.1.address", "224.0.0.1"}, {"syslog.rsh.level", "debug"}});
    auto const refused = IsError(
        Error::InvalidInputArg,
        "syslog.remote.1.address: \"224.0.0.1\" is not allowed; it must be the address of a host, or 0.0.0.0 "
        "for an unused receiver: 224.0.0.1 is a multicast address");
    EXPECT_THAT(transaction.preview(folder), refused);
    EXPECT_THAT(transaction.commit(folder), refused);
    EXPECT_EQ(stored_settings(folder).value().size(), 1U);
    Transaction back;
    ASSERT_THAT(back.put_back("syslog.remote.1.address", "224.0.0.1"), IsOk());
    EXPECT_THAT(back.commit(folder), IsOk());
    // Stored by an earlier release, it is read as before.
    CfgDbWrapper const cfgdb{"test", folder, ReadOnly{}};
    SyslogNetworkDest remote{};
    EXPECT_EQ(getRunDb_CommonGCfg_logging_syslog_remote(cfgdb.db(), &remote, all_zero_key), 0);
}

TEST(Values, OfALogFolderThatOthersMayWriteAreRefusedButPutBack) {
    test::ScratchFolder const scratch;
    auto const folder = scratch / "db";
    change(folder, {{"syslog.file.path", "/var/lib/board/"}});
    auto transaction = wish({{"syslog.file.path", "/tmp/log/"}, {"syslog.rsh.level", "debug"}});
    auto const refused =
        IsError(Error::InvalidInputArg,
                "syslog.file.path: \"/tmp/log/\" is not allowed; it must be a folder that only root can "
                "write to, such as /var/log/: users other than root can write to /tmp, and whoever can "
                "replace a file there decides what syslog-ng writes to as root");
    EXPECT_THAT(transaction.preview(folder), refused);
    EXPECT_THAT(transaction.commit(folder), refused);
    EXPECT_EQ(stored_settings(folder).value().size(), 1U);
    // What was in force before is put back all the same, or a trial could not be undone.
    Transaction back;
    ASSERT_THAT(back.put_back("syslog.file.path", "/var/lib/board/", "/tmp/log/"), IsOk());
    EXPECT_THAT(back.commit(folder), IsOk());
}

} // namespace
} // namespace xpon::cfgdb
