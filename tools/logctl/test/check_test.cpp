// check, with the real syslog-ng.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "json_page.hpp"
#include "logctl.hpp"

namespace xpon::logctl {
namespace {

class Check : public testing::Test {
  protected:
    void SetUp() override {
        EXPECT_EQ(logctl({"set", "syslog.rsh.level=debug", "syslog.remote.1.address=10.0.0.1"}), silence);
    }

    Logctl logctl;
};

TEST_F(Check, AConfigurationThatLoadsIsGood) {
    EXPECT_EQ(logctl({"check"}), printed(R"(
settings: 2 stored, all valid
syslog-ng: starts with the generated text
)"));
    EXPECT_EQ(logctl({"check", "--json"}), printed(R"(
{
  "good": true,
  "stored": 2,
  "problems": [],
  "dry_run": {
    "state": "loads",
    "reason": ""
  }
}
)"));
    for (auto const* folder : {"/var/log", "/var/lib/syslog-ng", "/dev/pts/0"}) {
        EXPECT_TRUE(!std::filesystem::exists(folder) || std::filesystem::is_empty(folder)) << folder;
    }
}

TEST_F(Check, InvalidAndUnknownSettingsAreNamed) {
    logctl.sql("UPDATE setting SET value = 'x' || char(10) || '@include' WHERE path = 'syslog.rsh.level'; "
               "INSERT INTO setting VALUES('syslog.rsh.levle', 3); INSERT INTO setting "
               "VALUES('module.logconfig.SELF', 3)");
    EXPECT_EQ(logctl({"check"}), (Outcome{1, text(R"(
settings: 4 stored, 3 wrong
  "module.logconfig.SELF": no such setting, the daemon ignores it
  syslog.rsh.level: "x\x0a@include" is stored, but it must be critical, error, warning, notice, info or debug (0 to 5)
  "syslog.rsh.levle": no such setting, the daemon ignores it
syslog-ng: the dry run could not be done: these settings give no text
)"),
                                          ""}));
}

TEST_F(Check, EqualReceiversAreNamed) {
    logctl.sql("INSERT INTO setting VALUES('syslog.remote.3.address', '10.0.0.1')");
    expect_explained("check", logctl({"check", "--json"}).out);
    EXPECT_EQ(logctl({"check", "--json"}), (Outcome{1, text(R"(
{
  "good": false,
  "stored": 3,
  "problems": [
    {
      "path": "syslog.remote.3",
      "problem": "10.0.0.1 port 514, as syslog.remote.1; receivers must differ in address or port"
    }
  ],
  "dry_run": {
    "state": "not done",
    "reason": "these settings give no text"
  }
}
)"),
                                                    ""}));
}

TEST_F(Check, ATextThatSyslogNgRefusesIsAFailure) {
    test::write_file("/etc/syslog-ng/scl.conf", "source s_local { internal(); };\n"); // a second one
    auto const outcome = logctl({"check"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.out,
                testing::StartsWith("settings: 2 stored, all valid\n"
                                    "syslog-ng: refuses the generated text: \"Error parsing config"));
}

TEST_F(Check, WithoutSyslogNgSaysThatTheDryRunWasNotDone) {
    std::filesystem::remove("/usr/sbin/syslog-ng"); // the sandbox's own
    EXPECT_EQ(logctl({"check"}), printed(R"(
settings: 2 stored, all valid
syslog-ng: the dry run could not be done: syslog-ng is missing: it is in none of /usr/sbin, /usr/bin, /sbin, /bin
)"));
}

} // namespace
} // namespace xpon::logctl
