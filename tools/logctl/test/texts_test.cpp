// modules and preview.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/golden.hpp"
#include "logctl.hpp"

namespace xpon::logctl {
namespace {

class Texts : public testing::Test {
  protected:
    void SetUp() override { EXPECT_EQ(logctl({"reset", "*"}), silence); }

    Logctl logctl;
};

TEST_F(Texts, EveryModuleIsListedWithItsFilesLevelsAndSubjects) {
    EXPECT_EQ(logctl({"modules"}), (Outcome{0, test::golden("logctl/modules.txt"), ""}));
}

TEST_F(Texts, AModuleIsShownByNameStemOrValue) {
    EXPECT_EQ(logctl({"set", "module.switch.IPC=debug"}), silence);
    auto const expected = printed(R"(
name    switch
value   16
stem    SWITCH
files   SWITCH.conf
levels  module.switch.*

SUBJECT  LEVEL
SELF     notice
IPC      debug
CFGDB    notice
PORT     notice
1LAYER   notice
)");
    EXPECT_EQ(logctl({"modules", "switch"}), expected);
    EXPECT_EQ(logctl({"modules", "SWITCH"}), expected);
    EXPECT_EQ(logctl({"modules", "16"}), expected);
    EXPECT_EQ(logctl({"modules", "watchdog"}), printed(R"(
name    watchdog
value   22
stem    WATCHDOG
files   DNA.conf BOOTLOADERUPG.conf
levels  built in

SUBJECT  LEVEL
SELF     notice
)"));
}

TEST_F(Texts, ModulesAreObjectsOnRequest) {
    EXPECT_EQ(logctl({"modules", "--json", "sessionmgr"}), printed(R"(
[
  {
    "name": "sessionmgr",
    "value": 11,
    "stem": "SESSMGR",
    "files": [
      "SESSIONMGR.conf"
    ],
    "built_in": false,
    "subjects": {
      "SELF": "notice",
      "IPC": "notice"
    }
  }
]
)"));
}

TEST_F(Texts, UnknownModulesAndOutputsAreRefusedWithTheNearest) {
    std::pair<Logctl::Words, std::string> const cases[] = {
        {{"modules", "snm"}, R"("snm": no such module; did you mean "snmp" or "snmpdconf"?)"},
        {{"modules", "10"}, R"("10": no such module; logctl modules lists them)"},
        {{"modules", "\x1b[31m"}, R"("\x1b[31m": no such module; logctl modules lists them)"},
        {{"preview", "snpm"}, R"("snpm": no such output; did you mean "SNMP.conf"?)"},
        {{"preview", "../passwd"},
         R"("../passwd": no such output; there are: syslog-ng, kernel, DNA.conf, ACS_CONFIG_DUMP.conf, )"
         "ACS_CUSTOM.conf, ACSD-CONFIG.conf, ALARMMGR.conf, API-SERVICE.conf, AUTOBACKUPMGR.conf, "
         "BOOTLOADERUPG.conf, CLI.conf, CONFIGMGR.conf, ELECTION-MGR.conf, FILE-MGR.conf, FIRMWARE-MGR.conf, "
         "IPCBROKER.conf, NTPD-CONFIG.conf, SESSIONMGR.conf, SLOT-MGR.conf, SNMP.conf, SNMPD-CONFIG.conf, "
         "SWITCH.conf, SYSTEM-MGR.conf, USERD-CONFIG.conf, WEBSERVER-CONFIG.conf, LOG-CONFIG.conf, "
         "AAA-CONFIG.conf, NETSERVE.conf"},
    };
    for (auto const& [words, reason] : cases) {
        EXPECT_EQ(logctl(words), refused(reason));
    }
}

TEST_F(Texts, APreviewIsWhatTheDaemonWouldWrite) {
    for (auto const& file :
         std::filesystem::directory_iterator{std::filesystem::path{XPON_GOLDEN_FOLDER} / "zlog_defaults"}) {
        EXPECT_EQ(logctl({"preview", file.path().filename()}), (Outcome{0, test::read_file(file), ""}));
        EXPECT_EQ(logctl({"preview", file.path().stem()}).out, test::read_file(file));
    }
}

TEST_F(Texts, APreviewFollowsTheDatabase) {
    EXPECT_EQ(logctl({"set", "module.netserve.IPC=critical"}), silence);
    EXPECT_THAT(logctl({"preview", "NETSERVE"}).out, testing::EndsWith(text(R"(
NETSERVE.=NOTICE >syslog, LOG_LOCAL0; for_info
NETSERVE_IPC.=FATAL >syslog, LOG_LOCAL0; for_fatal
)")));
}

TEST_F(Texts, AStoredValueThatIsNotAllowedIsNamed) {
    EXPECT_EQ(logctl({"set", "module.netserve.IPC=critical"}), silence);
    logctl.sql("UPDATE setting SET value = 99");
    auto const expected =
        refused("module.netserve.IPC: 99 is stored, but it must be critical, error, warning, notice, info or "
                "debug (0 to 5)");
    EXPECT_EQ(logctl({"preview", "NETSERVE"}), expected);
    EXPECT_EQ(logctl({"export"}), expected);
}

} // namespace
} // namespace xpon::logctl
