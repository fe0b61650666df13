#include "xpon/cfgdb/settings.hpp"

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/matchers.hpp"
#include "xpon/cfgdb/nearest.hpp"

namespace xpon::cfgdb {
namespace {

using core::Error;
using test::IsError;
using test::IsOk;
using testing::ElementsAre;

constexpr char const* levels = "critical, error, warning, notice, info or debug (0 to 5)";
constexpr char const* sizes = "65536 to 1073741824 bytes";
constexpr char const* ports = "1 to 65535";
constexpr char const* folders = "an absolute path that ends in '/', at most 31 bytes of A-Z a-z 0-9 . _ / -";
constexpr char const* addresses = "a dotted IPv4 address, or 0.0.0.0 for an unused receiver";

std::string refused(std::string const& path, std::string const& text, char const* allowed) {
    return path + ": \"" + text + "\" is not allowed; it must be " + allowed;
}

/// What follows where a level was meant.
std::string hint(std::string const& text) {
    static std::map<std::string, std::string> const meant{
        {"err", "error"}, {"INFO", "info"}, {"Notice", "notice"}, {"info\n", "info"}};
    auto const found = meant.find(text);
    return found == meant.end() ? "" : "; did you mean \"" + found->second + "\"?";
}

TEST(Settings, AFieldIsNamedByWhatItsSettingsHaveInCommon) {
    EXPECT_EQ(field_name(54), "syslog.remote");
    EXPECT_EQ(field_name(56), "syslog.rsh");
    EXPECT_EQ(field_name(60), "module.fsm_pon");
    EXPECT_EQ(field_name(69), "module.snmp");
    EXPECT_EQ(field_name(0), "field 0");
    EXPECT_EQ(field_name(57), "field 57");
}

TEST(Settings, SyslogSettingsAreTheseWithTheseDefaultsAndFields) {
    struct Row {
        std::string path;
        std::string default_value;
        std::uint32_t field_id;
    };
    std::vector<Row> const expected{
        {"syslog.file.path", "/var/log/", 52},      {"syslog.file.size", "1048576", 52},
        {"syslog.file.level", "info", 52},          {"syslog.console.level", "error", 53},
        {"syslog.remote.1.address", "0.0.0.0", 54}, {"syslog.remote.1.port", "514", 54},
        {"syslog.remote.2.address", "0.0.0.0", 54}, {"syslog.remote.2.port", "514", 54},
        {"syslog.remote.3.address", "0.0.0.0", 54}, {"syslog.remote.3.port", "514", 54},
        {"syslog.remote.level", "notice", 54},      {"syslog.kernel.level", "warning", 55},
        {"syslog.rsh.level", "notice", 56},
    };
    for (std::size_t i = 0; i < expected.size(); ++i) {
        auto const& setting = settings()[i];
        EXPECT_EQ(setting.path, expected[i].path);
        EXPECT_EQ(to_text(setting.kind, setting.default_value), expected[i].default_value) << setting.path;
        EXPECT_EQ(setting.field_id, expected[i].field_id) << setting.path;
        EXPECT_FALSE(setting.built_in());
    }
    EXPECT_EQ(settings()[expected.size()].path, "module.alarmmgr.SELF");
}

TEST(Settings, EveryModuleLevelIsNoticeButTheDaemonsOwn) {
    for (auto const& setting : settings()) {
        if (setting.path.starts_with("module.")) {
            bool const own = setting.path.starts_with("module.logconfig.");
            EXPECT_EQ(setting.default_value, Value{std::int64_t{own ? 5 : 3}}) << setting.path;
            EXPECT_EQ(setting.kind, Kind::Level);
        }
    }
}

TEST(Settings, ThereAreThisMany) {
    auto const built_in = std::ranges::count_if(settings(), &Setting::built_in);
    EXPECT_EQ(built_in, 53);
    EXPECT_EQ(std::ssize(settings()) - built_in, 13 + 87 + 4113);
}

TEST(Settings, ASettingIsFoundByItsExactPathAlone) {
    for (auto const& setting : settings()) {
        EXPECT_EQ(find_setting(setting.path), &setting) << setting.path;
    }
    for (auto const* path :
         {"", "syslog", "syslog.file", "syslog.file.level.", "syslog.file.LEVEL", "module.snmp.trap",
          "module.fsm_pon.PORT.3", "module.fsm_pon.port", "module.fsm_pon.port.03", "module.fsm_pon.port.0",
          "module.fsm_pon.port.17", "module.fsm_pon.ont.1.257", "module.fsm_pon.ont.17.1", "module.fsm.SELF",
          "syslog.remote.4.port"}) {
        EXPECT_EQ(find_setting(path), nullptr) << path;
    }
}

TEST(Settings, TheSubjectAndThePonPortOfTheStateMachinesAreToldApartByCase) {
    EXPECT_EQ(find_setting("module.fsm_pon.PORT")->offset, 2U * 2);
    EXPECT_EQ(find_setting("module.fsm_pon.olt")->offset, 2U * 11);
    EXPECT_EQ(find_setting("module.fsm_pon.port.1")->offset, 2U * 12);
    EXPECT_EQ(find_setting("module.fsm_pon.port.10")->offset, 2U * 21);
    EXPECT_EQ(find_setting("module.fsm_pon.port.16")->offset, 2U * 27);
    EXPECT_EQ(find_setting("module.fsm_pon.ont.1.1")->offset, 2U * 28);
    EXPECT_EQ(find_setting("module.fsm_pon.ont.2.3")->offset, 2U * 286);
    EXPECT_EQ(find_setting("module.fsm_pon.ont.16.256")->offset, 2U * 4123);
}

struct Values {
    std::string path;
    std::vector<std::pair<std::string, Value>> allowed;
    std::vector<std::string> refused;
    char const* allowed_text;
};

std::vector<Values> value_cases() {
    auto const number = [](std::int64_t n) { return Value{n}; };
    std::vector<std::pair<std::string, Value>> const level_values{
        {"critical", number(0)}, {"error", number(1)}, {"warning", number(2)}, {"notice", number(3)},
        {"info", number(4)},     {"debug", number(5)}, {"0", number(0)},       {"1", number(1)},
        {"2", number(2)},        {"3", number(3)},     {"4", number(4)},       {"5", number(5)},
    };
    std::vector<std::string> const no_levels{"",
                                             "6",
                                             "-1",
                                             "+3",
                                             " 3",
                                             "3 ",
                                             "0x3",
                                             "3.0",
                                             "err",
                                             "INFO",
                                             "Notice",
                                             "emerg",
                                             "99999999999999999999",
                                             "info\n"};
    std::vector<std::string> const no_ports{
        "", "0", "65536", "-1", "+514", "514 ", "syslog", "5.14", "99999999999999999999"};
    std::vector<std::pair<std::string, Value>> const port_values{
        {"1", number(1)}, {"514", number(514)}, {"65535", number(65535)}};
    std::vector<std::string> const no_addresses{
        "",          "10.0.0",    "10.0.0.1.2", "256.0.0.1", "10.0.0.256", "010.0.0.1",
        "10.00.0.1", "10.0.0.1 ", " 10.0.0.1",  "10.0.0.-1", "0x0a.0.0.1", "10.0.0.1\n",
        "::1",       "localhost", "1",          "10..0.1",   "10.0.0.1/24"};
    std::vector<std::pair<std::string, Value>> const address_values{{"0.0.0.0", "0.0.0.0"},
                                                                    {"0.0.0.1", "0.0.0.1"},
                                                                    {"10.0.0.1", "10.0.0.1"},
                                                                    {"255.255.255.255", "255.255.255.255"}};
    std::vector<Values> cases{
        {"syslog.file.path",
         {{"/", "/"},
          {"/var/log/", "/var/log/"},
          {"/AZaz09._-/", "/AZaz09._-/"},
          {"/345678901234567890123456789012/", Value{}}},
         {"", "var/log/", "/var/log", "/23456789012345678901234567890123/", "/var/lo g/", "/var/l\"og/",
          "/var/log\n/", "/var/`id`/", "/$HOME/", "/var/l\\og/", "/var/l\xc3\xb6g/", "/var/'/", "/a;b/",
          "@include/"},
         folders},
        {"syslog.file.size",
         {{"65536", number(65536)}, {"1048576", number(1048576)}, {"1073741824", number(1073741824)}},
         {"", "65535", "1073741825", "0", "-65536", "1M", "1048576.0", "1e6", "4295032832",
          "99999999999999999999"},
         sizes},
    };
    // One more byte than fits is refused, the longest that fits is not.
    cases.front().allowed.back() = {"/34567890123456789012345678901/", "/34567890123456789012345678901/"};
    EXPECT_EQ(cases.front().allowed.back().first.size(), 31U);
    cases.front().refused.push_back("/345678901234567890123456789012/");
    for (auto const* path : {"syslog.file.level", "syslog.console.level", "syslog.remote.level",
                             "syslog.kernel.level", "syslog.rsh.level"}) {
        cases.push_back({path, level_values, no_levels, levels});
    }
    for (auto const* receiver : {"1", "2", "3"}) {
        cases.push_back({fmt::format("syslog.remote.{}.port", receiver), port_values, no_ports, ports});
        cases.push_back(
            {fmt::format("syslog.remote.{}.address", receiver), address_values, no_addresses, addresses});
    }
    for (auto const& setting : settings()) {
        if (setting.path.starts_with("module.")) {
            cases.push_back(
                {setting.path, {{"critical", number(0)}, {"debug", number(5)}}, {"6", "-1"}, levels});
        }
    }
    return cases;
}

std::string printed(std::string const& text) {
    std::string out;
    for (char const c : text) {
        bool const plain = c >= ' ' && c <= '~' && c != '"' && c != '\\';
        out += plain ? std::string{c} : fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
    }
    return out;
}

TEST(Values, EverySettingTakesWhatIsAllowedAndRefusesWhatIsNot) {
    for (auto const& [path, allowed, not_allowed, allowed_text] : value_cases()) {
        auto const& setting = *find_setting(path);
        for (auto const& [text, value] : allowed) {
            auto const parsed = parse(setting, text);
            ASSERT_THAT(parsed, IsOk()) << path << "=" << text;
            EXPECT_EQ(parsed.value(), value) << path << "=" << text;
            EXPECT_TRUE(is_allowed(setting.kind, value)) << path << "=" << text;
        }
        for (auto const& text : not_allowed) {
            EXPECT_THAT(parse(setting, text),
                        IsError(Error::InvalidInputArg, refused(path, printed(text), allowed_text) +
                                                            (setting.kind == Kind::Level ? hint(text) : "")))
                << path << "=" << text;
        }
    }
}

TEST(Values, OfEveryKindAreTried) {
    std::set<Kind> tried;
    for (auto const& values : value_cases()) {
        tried.insert(find_setting(values.path)->kind);
    }
    for (auto const& setting : settings()) {
        EXPECT_TRUE(tried.contains(setting.kind)) << setting.path;
    }
}

TEST(Values, ALongTextIsCutInTheError) {
    auto const& setting = *find_setting("syslog.file.path");
    EXPECT_THAT(parse(setting, std::string(1000, 'a')),
                IsError(Error::InvalidInputArg, "syslog.file.path: \"" + std::string(100, 'a') +
                                                    "...\" is not allowed; it must be " + folders));
}

TEST(Values, AValueOfTheWrongTypeIsNotAllowed) {
    for (auto const kind : {Kind::Level, Kind::Size, Kind::Port}) {
        EXPECT_FALSE(is_allowed(kind, Value{"3"}));
    }
    for (auto const kind : {Kind::Folder, Kind::Address}) {
        EXPECT_FALSE(is_allowed(kind, Value{std::int64_t{3}}));
    }
    EXPECT_FALSE(is_allowed(Kind::Address, Value{std::string{"10.0.0.1\0x", 10}}));
    EXPECT_FALSE(is_allowed(Kind::Folder, Value{std::string{"/a\0/", 4}}));
}

TEST(Values, TheTextOfAValueIsReadAsTheSameValue) {
    for (auto const& setting : settings()) {
        EXPECT_THAT(parse(setting, to_text(setting.kind, setting.default_value)),
                    test::IsOkAnd(setting.default_value));
    }
    EXPECT_EQ(to_text(Kind::Level, Value{std::int64_t{9}}), "9");
}

// --- patterns

std::vector<std::string> paths(std::string const& pattern) {
    auto const found = expand(pattern);
    EXPECT_THAT(found, IsOk()) << pattern;
    std::vector<std::string> all;
    for (auto const* setting : found.has_value() ? found.value() : std::vector<Setting const*>{}) {
        all.push_back(setting->path);
    }
    return all;
}

TEST(Patterns, NameTheseSettings) {
    EXPECT_THAT(paths("syslog.kernel.level"), ElementsAre("syslog.kernel.level"));
    EXPECT_THAT(paths("syslog.*.level"),
                ElementsAre("syslog.file.level", "syslog.console.level", "syslog.remote.level",
                            "syslog.kernel.level", "syslog.rsh.level"));
    EXPECT_THAT(paths("syslog.remote.*.port"),
                ElementsAre("syslog.remote.1.port", "syslog.remote.2.port", "syslog.remote.3.port"));
    EXPECT_THAT(paths("syslog.remote.2-3.*"), ElementsAre("syslog.remote.2.address", "syslog.remote.2.port",
                                                          "syslog.remote.3.address", "syslog.remote.3.port"));
    EXPECT_THAT(paths("module.snmp.*"),
                ElementsAre("module.snmp.SELF", "module.snmp.IPC", "module.snmp.CFGDB", "module.snmp.GET",
                            "module.snmp.SET", "module.snmp.TRAP", "module.snmp.CUSTOM_1LAYER"));
    EXPECT_THAT(paths("module.fsm_pon.ont.3.9-11"),
                ElementsAre("module.fsm_pon.ont.3.9", "module.fsm_pon.ont.3.10", "module.fsm_pon.ont.3.11"));
    EXPECT_THAT(paths("module.fsm_pon.ont.15-16.256"),
                ElementsAre("module.fsm_pon.ont.15.256", "module.fsm_pon.ont.16.256"));
    EXPECT_THAT(paths("module.fsm_pon.port.7-7"), ElementsAre("module.fsm_pon.port.7"));
}

TEST(Patterns, CountWhatTheyCover) {
    std::pair<char const*, std::size_t> const cases[] = {
        {"*", settings().size()},
        {"syslog.*", 13},
        {"module.*", settings().size() - 13},
        {"module.*.SELF", 40},
        {"module.fsm_pon.*", 4124},
        {"module.fsm_pon.port.*", 16},
        {"module.fsm_pon.ont.*", 4096},
        {"module.fsm_pon.ont.*.*", 4096},
        {"module.fsm_pon.ont.3.*", 256},
        {"module.fsm_pon.ont.*.1", 16},
        {"module.fsm_pon.ont.1-16.1-256", 4096},
        {"module.fsm_pon.ont.3.1-16", 16},
        {"module.fsm_pon.ont.3.1-16,18,250-256", 24},
        {"module.fsm_pon.ont.1,3.5,5", 2},
    };
    for (auto const& [pattern, count] : cases) {
        EXPECT_EQ(paths(pattern).size(), count) << pattern;
    }
}

TEST(Patterns, WhatNamesNothingIsRefusedWithTheNearestNames) {
    constexpr char const* far = "all begin with \"syslog.\" or \"module.\"";
    std::pair<std::string, std::string> const cases[] = {
        {"syslog.flie.level", "did you mean \"syslog.file.level\"?"},
        {"syslog.remote.1.adress", "did you mean \"syslog.remote.1.address\"?"},
        {"Syslog.Remote.Level", "did you mean \"syslog.remote.level\"?"},
        {"module.snmp.trap", "did you mean \"module.snmp.TRAP\"?"},
        {"module.snmp.TRAPS", "did you mean \"module.snmp.TRAP\"?"},
        {"module.snpm.*", "did you mean \"module.snmp.*\"?"},
        {"module.snmp", "did you mean \"module.snmp.*\"?"},
        {"module.fsm_pon.port", "did you mean \"module.fsm_pon.PORT\" or \"module.fsm_pon.port.*\"?"},
        {"syslog.flie", "did you mean \"syslog.file.*\"?"},
        {"module.fsm_pon.onts.3", "did you mean \"module.fsm_pon.ont.3.*\"?"},
        {"module.fsm_pon.PORT.3", "did you mean \"module.fsm_pon.port.3\"?"},
        {"module.fsm_pon.onu.3.1-16", "did you mean \"module.fsm_pon.ont.3.1-16\"?"},
        {"module.fsm_pon.port.03", "did you mean \"module.fsm_pon.port.3\" or \"module.fsm_pon.port.13\"?"},
        {"module.fsm.SELF", "did you mean \"module.fsm_pon.SELF\"?"},
        {"syslog.file.level.x", "did you mean \"syslog.file.level\"?"},
        {"rsh.level", "did you mean \"syslog.rsh.level\"?"},
        {"snmp.trap", "did you mean \"module.snmp.TRAP\"?"},
        {"snmp", "did you mean \"module.snmp.*\"?"},
        {"fsm_pon.ont.3.1-16", "did you mean \"module.fsm_pon.ont.3.1-16\"?"},
        {"level", far},
        {"", far},
        {".", far},
        {"everything", far},
        {"module.*.*.*.*.*", "did you mean \"module.*.*.*.*\"?"},
    };
    for (auto const& [pattern, hint] : cases) {
        EXPECT_THAT(expand(pattern), IsError(Error::InvalidInputArg,
                                             fmt::format("\"{}\": no such setting; {}", pattern, hint)));
    }
}

TEST(Patterns, ATextThatIsNoPathIsShownSafely) {
    EXPECT_THAT(expand("module.\n\"\x1b[2J"),
                IsError(Error::InvalidInputArg, testing::StartsWith("\"module.\\x0a\\x22\\x1b[2J\": ")));
    EXPECT_THAT(expand(std::string(100000, 'a')),
                IsError(Error::InvalidInputArg, testing::HasSubstr("aaa...\": no such setting")));
}

TEST(Nearest, NamesAreThoseWithFewLettersAddedDroppedChangedOrExchanged) {
    EXPECT_EQ(distance("status", "status"), 0U);
    EXPECT_EQ(distance("stauts", "status"), 1U); // exchanged
    EXPECT_EQ(distance("satuts", "status"), 2U);
    EXPECT_EQ(distance("Statsu", "status"), 1U);
    EXPECT_EQ(distance("sttus", "status"), 1U);
    EXPECT_EQ(distance("stattus", "status"), 1U);
    EXPECT_EQ(distance("stadus", "status"), 1U);
    EXPECT_EQ(distance("st", "status"), 1U); // cut short
    EXPECT_EQ(distance("", "status"), 6U);
    EXPECT_EQ(distance("ba", "acb"), 3U); // no letter is moved twice
    std::vector<std::string> const names{"show", "set", "status", "reset", "restore", "export", "extend"};
    EXPECT_THAT(nearest("stauts", names), ElementsAre("status"));
    EXPECT_THAT(nearest("res", names), ElementsAre("reset", "restore"));
    EXPECT_THAT(nearest("s", names), ElementsAre("show", "set", "status"));
    EXPECT_THAT(nearest("foo", names), ElementsAre());
    EXPECT_THAT(nearest("", names), ElementsAre());
    EXPECT_THAT(nearest(std::string(1000, 's'), names), ElementsAre());
    EXPECT_EQ(did_you_mean({}), "");
    EXPECT_EQ(did_you_mean({"a"}), "did you mean \"a\"?");
    EXPECT_EQ(did_you_mean({"a", "b"}), "did you mean \"a\" or \"b\"?");
    EXPECT_EQ(did_you_mean({"a", "b", "\n"}), "did you mean \"a\", \"b\" or \"\\x0a\"?");
}

TEST(Patterns, NumbersThatDoNotExistAreRefused) {
    std::pair<std::string, std::string> const cases[] = {
        {"module.fsm_pon.ont.3.1-257", "1-257 is not within 1-256"},
        {"module.fsm_pon.ont.0-3.1", "0-3 is not within 1-16"},
        {"module.fsm_pon.ont.1,17.1", "1,17 is not within 1-16"},
        {"module.fsm_pon.ont.17.3", "17 is not within 1-16"},
        {"module.fsm_pon.port.16-1", "16-1 does not begin with its lower number"},
        {"module.fsm_pon.port.5-5,3-1", "3-1 does not begin with its lower number"},
        {"syslog.remote.4.port", "4 is not within 1-3"},
        {"syslog.remote.0.*", "0 is not within 1-3"},
    };
    for (auto const& [pattern, reason] : cases) {
        EXPECT_THAT(expand(pattern),
                    IsError(Error::InvalidInputArg, fmt::format("\"{}\": {}", pattern, reason)));
    }
}

} // namespace
} // namespace xpon::cfgdb
