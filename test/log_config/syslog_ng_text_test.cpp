#include "xpon/log_config/syslog_ng/syslog_ng_text.hpp"

#include <gmock/gmock.h>

#include "kit/golden.hpp"
#include "log_config/syslog_settings_samples.hpp"

namespace xpon::log_config {
namespace {

using test::golden;
using testing::HasSubstr;
using testing::Not;

std::string text_with_shells(std::initializer_list<std::size_t> open) {
    OpenShells shells{};
    for (auto const number : open) {
        shells.at(number) = true;
    }
    return syslog_ng_text(default_settings(), shells);
}

TEST(SyslogNgText, DefaultsWithoutReceiversAndShells) {
    EXPECT_EQ(syslog_ng_text(default_settings(), {}), golden("syslog_ng/defaults.conf"));
}

TEST(SyslogNgText, SomeReceiversAndShells) {
    auto settings = default_settings();
    set_receiver(settings, 1, "127.0.0.1", 5514);
    set_receiver(settings, 3, "127.0.0.1", 5515);
    settings.file.level = 5;
    OpenShells shells{};
    shells[0] = shells[3] = shells[14] = shells[15] = true;
    EXPECT_EQ(syslog_ng_text(settings, shells), golden("syslog_ng/two_receivers_three_shells.conf"));
}

TEST(SyslogNgText, EverySettingChangedAndEveryShellOpen) {
    auto settings = default_settings();
    std::strcpy(settings.file.path, "/mnt/flash/log/board-1.a_b/");
    settings.file.size = 1073741824;
    settings.file.level = 0;
    settings.console.level = 5;
    set_receiver(settings, 1, "192.0.2.1", 514);
    set_receiver(settings, 2, "198.51.100.20", 65535);
    set_receiver(settings, 3, "203.0.113.255", 1);
    settings.remote.level = 1;
    settings.rsh.level = 2;
    OpenShells shells;
    shells.fill(true);
    EXPECT_EQ(syslog_ng_text(settings, shells), golden("syslog_ng/everything.conf"));
}

TEST(SyslogNgText, UnusedReceiversStillHaveTheirDestinationsAndRoutesAreNeverLeftOut) {
    auto const text = text_with_shells({});
    for (auto const* const number : {"1", "2", "3"}) {
        EXPECT_THAT(text, HasSubstr(std::string{"destination d_network"} + number + " {"));
    }
    EXPECT_THAT(text, Not(HasSubstr("destination(d_network")));
    // The network route and the remote shell route, both without a destination.
    EXPECT_THAT(text, HasSubstr("log {\n    source(s_local);\n    filter (f_3);\n};\n\n"));
    EXPECT_THAT(text, HasSubstr("log {\n    source(s_local);\n    filter (ignore_systemd_fsck);\n"
                                "    filter (f_3);\n};\n\n"));
}

TEST(SyslogNgText, Terminal15HasASlotButNoOutput) {
    EXPECT_EQ(text_with_shells({15}), text_with_shells({}));
    EXPECT_THAT(text_with_shells({0, 15}),
                HasSubstr("destination d_rsh_0 {\n    file(\"/dev/pts/0\");\n};\n\n"));
    EXPECT_THAT(text_with_shells({14}), HasSubstr("    destination(d_rsh_14);\n"));
}

TEST(SyslogNgText, OnlyTheExactMarkerMeansAnUnusedReceiver) {
    for (auto const* const address : {"0.0.0.0 ", "", "0.0.0.00", "0.0.0.", " 0.0.0.0", "0.0.0.1"}) {
        auto settings = default_settings();
        set_receiver(settings, 2, address, 514);
        auto const text = syslog_ng_text(settings, {});
        EXPECT_THAT(text, HasSubstr("    destination(d_network2);\n")) << '"' << address << '"';
        EXPECT_THAT(text, HasSubstr('"' + std::string{address} + "\" port(514)\n"));
    }
}

TEST(SyslogNgText, ALevelAbove5IsWrittenAsItStands) {
    auto settings = default_settings();
    settings.file.level = 7;
    settings.rsh.level = 65535;
    auto const text = syslog_ng_text(settings, {});
    EXPECT_THAT(text, HasSubstr("    filter (f_7);\n    destination(d_file);\n"));
    EXPECT_THAT(text, HasSubstr("    filter (f_65535);\n};\n"));
}

TEST(SyslogNgText, NumbersAreUnsignedDecimals) {
    auto settings = default_settings();
    settings.file.size = 4294967295U;
    set_receiver(settings, 1, "127.0.0.1", 65535);
    auto const text = syslog_ng_text(settings, {});
    EXPECT_THAT(text, HasSubstr("@define file_size \"4294967295\"\n"));
    EXPECT_THAT(text, HasSubstr("    \"127.0.0.1\" port(65535)\n"));
}

TEST(SyslogNgText, TheAddressIsQuotedWithoutEscaping) {
    auto settings = default_settings();
    set_receiver(settings, 1, "a\"b\\c", 0);
    EXPECT_THAT(syslog_ng_text(settings, {}), HasSubstr("    \"a\"b\\c\" port(0)\n"));
}

TEST(SyslogNgText, TextsThatFillTheirFieldsEndWithThem) {
    auto settings = default_settings();
    std::memset(settings.file.path, 'p', sizeof settings.file.path);
    std::memset(settings.remote.dest[0].address, '9', sizeof settings.remote.dest[0].address);
    auto const text = syslog_ng_text(settings, {});
    EXPECT_THAT(text, HasSubstr("@define log_path \"" + std::string(32, 'p') + "system.log.1\"\n"));
    EXPECT_THAT(text, HasSubstr("    \"" + std::string(16, '9') + "\" port(514)\n"));
}

TEST(SyslogNgText, TheKernelLevelIsNotUsed) {
    auto settings = default_settings();
    settings.kernel.level = 5;
    EXPECT_EQ(syslog_ng_text(settings, {}), syslog_ng_text(default_settings(), {}));
}

} // namespace
} // namespace xpon::log_config
