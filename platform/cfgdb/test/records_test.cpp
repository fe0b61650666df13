#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "readers.hpp"
#include "support.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"

namespace xpon::cfgdb {
namespace {

class Records : public DatabaseFolder {
  protected:
    CfgDbWrapper cfgdb{"TEST_CFGDB", folder};
    RawDatabase raw{file};

    /// The whole record, over a pattern that shows what was not written.
    Bytes read(Reader const& reader) const {
        Bytes bytes(reader.size, 0xA5);
        EXPECT_EQ(reader.read(cfgdb.db(), bytes.data(), all_zero_key), 0) << reader.prefix;
        return bytes;
    }

    /// As the daemon does it: defaults, then the stored records.
    std::array<char, sizeof(SyslogSettings)> syslog_settings() const {
        SyslogSettings settings;
        std::memset(&settings, 0xA5, sizeof settings);
        EXPECT_EQ(init_SyslogSettings(&settings), 0);
        EXPECT_EQ(getRunDb_CommonGCfg_logging_syslog_remote(cfgdb.db(), &settings.remote, all_zero_key), 0);
        EXPECT_EQ(getRunDb_CommonGCfg_logging_syslog_rsh(cfgdb.db(), &settings.rsh, all_zero_key), 0);
        EXPECT_EQ(getRunDb_CommonGCfg_logging_syslog_file(cfgdb.db(), &settings.file, all_zero_key), 0);
        EXPECT_EQ(getRunDb_CommonGCfg_logging_syslog_console(cfgdb.db(), &settings.console, all_zero_key), 0);
        EXPECT_EQ(getRunDb_CommonGCfg_logging_syslog_kernel(cfgdb.db(), &settings.kernel, all_zero_key), 0);
        std::array<char, sizeof settings> bytes{};
        std::memcpy(bytes.data(), &settings, sizeof settings);
        return bytes;
    }

    /// Reads a record that must be refused: status, `errno`, an untouched record and the line in the system
    /// log.
    void expect_refused(std::string const& prefix, int error_number, std::string const& line) const {
        auto const reader = reader_of(prefix);
        Bytes bytes(reader.size, 0xA5);
        CapturedSyslog syslog;
        errno = 0;
        EXPECT_EQ(reader.read(cfgdb.db(), bytes.data(), all_zero_key), -1) << line;
        EXPECT_EQ(errno, error_number) << line;
        EXPECT_EQ(bytes, Bytes(reader.size, 0xA5)) << line;
        EXPECT_EQ(syslog.lines(), "test: TEST_CFGDB - " + file.string() + ": " + line + "\n");
    }
};

/// `size` bytes of text, filled up with zeros.
std::string field(std::string text, std::size_t size) {
    text.resize(size, '\0');
    return text;
}

std::string u16(unsigned number) {
    return {static_cast<char>(number & 0xFF), static_cast<char>(number >> 8)};
}

std::string u32(unsigned number) {
    return u16(number & 0xFFFF) + u16(number >> 16);
}

TEST_F(Records, SyslogSettingsOfANewDatabaseAreTheDefaultsByteForByte) {
    std::string const expected = field("/var/log/", 32) + u32(1048576) + u16(4) + u16(0) // file
                                 + u16(1)                                                // console
                                 + field("0.0.0.0", 16) + u16(514) + field("0.0.0.0", 16) + u16(514) // remote
                                 + field("0.0.0.0", 16) + u16(514) + u16(3)                          //
                                 + u16(2)                                                            // kernel
                                 + u16(3) + u16(0);                                                  // rsh
    auto const bytes = syslog_settings();
    EXPECT_EQ(expected.size(), 104U);
    EXPECT_EQ(std::string(bytes.data(), bytes.size()), expected);
}

TEST_F(Records, SyslogSettingsThatAllDifferFromTheDefaultsComeBackByteForByte) {
    change(folder, {{"syslog.file.path", "/34567890123456789012345678901/"},
                    {"syslog.file.size", "1073741824"},
                    {"syslog.file.level", "debug"},
                    {"syslog.console.level", "critical"},
                    {"syslog.remote.1.address", "255.255.255.254"},
                    {"syslog.remote.1.port", "65535"},
                    {"syslog.remote.2.address", "10.0.0.2"},
                    {"syslog.remote.2.port", "1"},
                    {"syslog.remote.3.address", "192.168.100.3"},
                    {"syslog.remote.3.port", "10514"},
                    {"syslog.remote.level", "warning"},
                    {"syslog.kernel.level", "error"},
                    {"syslog.rsh.level", "info"}});
    std::string const expected = field("/34567890123456789012345678901/", 32) + u32(1073741824) + u16(5) +
                                 u16(0) + u16(0) + //
                                 field("255.255.255.254", 16) + u16(65535) + field("10.0.0.2", 16) + u16(1) +
                                 field("192.168.100.3", 16) + u16(10514) + u16(2) + u16(1) + u16(4) + u16(0);
    auto const bytes = syslog_settings();
    EXPECT_EQ(std::string(bytes.data(), bytes.size()), expected);
    EXPECT_EQ(raw.value("SELECT count(*) FROM setting"), "13");
}

TEST_F(Records, AShortTextOverALongDefaultLeavesNothingOfIt) {
    change(folder, {{"syslog.file.path", "/"}});
    auto const bytes = read(reader_of("syslog.file."));
    EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 32), field("/", 32));
}

TEST_F(Records, DefaultsOfEveryRecordAreWhatIsReadFromANewDatabase) {
    for (auto const& reader : all_readers()) {
        if (reader.init) {
            Bytes defaults(reader.size, 0xA5);
            EXPECT_EQ(reader.init(defaults.data()), 0);
            EXPECT_EQ(read(reader), defaults) << reader.prefix;
        }
        if (reader.prefix.starts_with("module.")) {
            Bytes notice;
            for (std::size_t i = 0; i < reader.size; i += 2) {
                notice.insert(notice.end(), {3, 0});
            }
            EXPECT_EQ(read(reader), notice) << reader.prefix;
        }
    }
}

template <class T>
void expect_levels(int (*init)(T*), std::uint16_t level) {
    T record{};
    EXPECT_EQ(init(&record), 0);
    for (auto const word : record.level) {
        EXPECT_EQ(word, level);
    }
    EXPECT_TRUE(is_refused([&] { return init(nullptr); }));
}

TEST(Defaults, BuiltInModulesAreAtNoticeAndTheDaemonsOwnAtDebug){
#define NO_DEFAULTS(...)
#define BUILT_IN_DEFAULTS(value, Descriptor, ...) expect_levels(init_##Descriptor, (value) == 38 ? 5 : 3);
    XPON_MODULES(NO_DEFAULTS, BUILT_IN_DEFAULTS)}

TEST(Defaults, ANullRecordIsRefused) {
    EXPECT_TRUE(is_refused([] { return init_SyslogSettings(nullptr); }));
    EXPECT_TRUE(is_refused([] { return init_SyslogNetworkDest(nullptr); }));
}

TEST_F(Records, EveryModuleLevelLandsInItsOwnWord) {
    std::size_t tested = 0;
    for (auto const& reader : all_readers()) {
        if (!reader.prefix.starts_with("module.") || reader.prefix == "module.fsm_pon.") {
            continue;
        }
        for (auto const& setting : settings()) {
            if (!setting.path.starts_with(reader.prefix)) {
                continue;
            }
            change(folder, {{reader.prefix + "*", "notice"}, {setting.path, "debug"}});
            auto expected = Bytes(reader.size, 0);
            for (std::size_t i = 0; i < reader.size; i += 2) {
                expected[i] = i == setting.offset ? 5 : 3;
            }
            EXPECT_EQ(read(reader), expected) << setting.path;
            ++tested;
        }
    }
    EXPECT_EQ(tested, 76U);
}

std::string fsm_path(std::size_t word) {
    std::array const subjects{"SELF", "ONT",     "PORT",    "OMCI",  "PLOAM",  "MIB",
                              "AUTH", "PROFILE", "SERVICE", "ALARM", "RESYNC", "olt"};
    if (word < subjects.size()) {
        return subjects.at(word);
    }
    if (word < 28) {
        return "port." + std::to_string(word - 11);
    }
    return "ont." + std::to_string((word - 28) / 256 + 1) + "." + std::to_string((word - 28) % 256 + 1);
}

/// Stores every level of the state machines, each unlike its neighbours.
void store_all_fsm_levels(RawDatabase const& raw) {
    std::string sql = "BEGIN; ";
    for (std::size_t word = 0; word < 4124; ++word) {
        sql += fmt::format("INSERT INTO setting VALUES('module.fsm_pon.{}', {}); ", fsm_path(word), word % 6);
    }
    raw.run(sql + "COMMIT");
}

TEST_F(Records, AllLevelsOfTheStateMachinesComeBackInTheirWords) {
    store_all_fsm_levels(raw);
    Bytes expected;
    for (unsigned word = 0; word < 4124; ++word) {
        expected.insert(expected.end(), {static_cast<std::uint8_t>(word % 6), 0});
    }
    EXPECT_EQ(read(reader_of("module.fsm_pon.")), expected);
}

TEST_F(Records, AFullRecordOfTheStateMachinesIsReadInUnderFiveMilliseconds) {
    store_all_fsm_levels(raw);
    auto const reader = reader_of("module.fsm_pon.");
    auto fastest = std::chrono::steady_clock::duration::max();
    for (int i = 0; i < 20; ++i) {
        auto const begin = std::chrono::steady_clock::now();
        read(reader);
        fastest = std::min(fastest, std::chrono::steady_clock::now() - begin);
    }
    auto const microseconds = std::chrono::duration_cast<std::chrono::microseconds>(fastest).count();
    RecordProperty("microseconds", static_cast<int>(microseconds));
    EXPECT_LT(microseconds, 5000);
}

TEST_F(Records, ASuccessfulReaderLeavesErrnoAlone) {
    for (auto const& reader : all_readers()) {
        Bytes bytes(reader.size);
        errno = 42;
        EXPECT_EQ(reader.read(cfgdb.db(), bytes.data(), all_zero_key), 0);
        EXPECT_EQ(errno, 42) << reader.prefix;
    }
}

TEST_F(Records, EveryReaderRefusesNullArgumentsAndOtherKeys) {
    unsigned short const keys[][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 0xFFFF}};
    for (auto const& reader : all_readers()) {
        Bytes bytes(reader.size, 0xA5);
        auto const refused = [&](void const* db, void* out, unsigned short const* key) {
            CapturedSyslog const syslog;
            return is_refused([&] { return reader.read(db, out, key); });
        };
        EXPECT_TRUE(refused(nullptr, bytes.data(), all_zero_key)) << reader.prefix;
        EXPECT_TRUE(refused(cfgdb.db(), nullptr, all_zero_key)) << reader.prefix;
        EXPECT_TRUE(refused(cfgdb.db(), bytes.data(), nullptr)) << reader.prefix;
        for (auto const& key : keys) {
            EXPECT_TRUE(refused(cfgdb.db(), bytes.data(), key)) << reader.prefix;
        }
        EXPECT_EQ(bytes, Bytes(reader.size, 0xA5)) << reader.prefix;
    }
}

TEST_F(Records, ARefusedArgumentIsNamedInTheSystemLog) {
    SyslogRshDest rsh{};
    unsigned short const key[3] = {0, 2, 0};
    CapturedSyslog syslog;
    getRunDb_CommonGCfg_logging_syslog_rsh(cfgdb.db(), &rsh, key);
    getRunDb_CommonGCfg_logging_syslog_rsh(nullptr, &rsh, all_zero_key);
    auto const database = file.string();
    EXPECT_EQ(syslog.lines(), "test: TEST_CFGDB - " + database +
                                  ": key 0.2.0 is not allowed; it must be 0.0.0\n" +
                                  "test: cfgdb - syslog.rsh.*: no database handle given\n");
}

constexpr char const* levels = ", but it must be critical, error, warning, notice, info or debug (0 to 5)";

TEST_F(Records, AStoredValueThatIsNotAllowedFailsItsRecordAndNoOther) {
    constexpr char const* sizes = ", but it must be 65536 to 1073741824 bytes";
    constexpr char const* ports = ", but it must be 1 to 65535";
    constexpr char const* folders =
        ", but it must be an absolute path that ends in '/', at most 31 bytes of A-Z a-z 0-9 . _ / -";
    constexpr char const* addresses =
        ", but it must be a dotted IPv4 address, or 0.0.0.0 for an unused receiver";
    struct Case {
        std::string path;
        std::string sql; // the value
        std::string shown;
        char const* allowed;
    };
    std::vector<Case> const cases{
        {"syslog.file.level", "6", "6", levels},
        {"syslog.file.level", "-1", "-1", levels},
        {"syslog.file.level", "'3'", "\"3\"", levels},
        {"syslog.file.level", "'info'", "\"info\"", levels},
        {"syslog.file.level", "3.0", "the real number 3", levels},
        {"syslog.file.level", "x'03'", "a blob of 1 bytes", levels},
        {"syslog.file.level", "NULL", "NULL", levels},
        {"syslog.file.level", "4294967299", "4294967299", levels},
        {"syslog.file.size", "65535", "65535", sizes},
        {"syslog.file.size", "1073741825", "1073741825", sizes},
        {"syslog.file.size", "4295032832", "4295032832", sizes},
        {"syslog.file.size", "'1048576'", "\"1048576\"", sizes},
        {"syslog.file.path", "3", "3", folders},
        {"syslog.file.path", "x'2F'", "a blob of 1 bytes", folders},
        {"syslog.file.path", "'/var/log'", "\"/var/log\"", folders},
        {"syslog.file.path", "'/\"); @include \"/etc/x\" #/'", "\"/\\x22); @include \\x22/etc/x\\x22 #/\"",
         folders},
        {"syslog.file.path", "'/a' || char(10) || 'b/'", "\"/a\\x0ab/\"", folders},
        {"syslog.file.path", "'/`reboot`/'", "\"/`reboot`/\"", folders},
        {"syslog.file.path", "'/$(reboot)/'", "\"/$(reboot)/\"", folders},
        {"syslog.file.path", "CAST('/a' || char(0) || 'b/' AS TEXT)", "\"/a\\x00b/\"", folders},
        {"syslog.file.path", "'/' || printf('%030d', 0) || '/'", "\"/000000000000000000000000000000/\"",
         folders},
        {"syslog.console.level", "6", "6", levels},
        {"syslog.remote.level", "6", "6", levels},
        {"syslog.remote.1.address", "'localhost'", "\"localhost\"", addresses},
        {"syslog.remote.2.address", "'10.0.0.1' || char(10)", "\"10.0.0.1\\x0a\"", addresses},
        {"syslog.remote.3.address", "167772161", "167772161", addresses},
        {"syslog.remote.1.port", "0", "0", ports},
        {"syslog.remote.2.port", "65536", "65536", ports},
        {"syslog.remote.3.port", "'514'", "\"514\"", ports},
        {"syslog.kernel.level", "6", "6", levels},
        {"syslog.rsh.level", "6", "6", levels},
        {"module.snmp.TRAP", "9", "9", levels},
        {"module.fsm_pon.olt", "-1", "-1", levels},
        {"module.fsm_pon.port.16", "x'00'", "a blob of 1 bytes", levels},
        {"module.fsm_pon.ont.16.256", "65536", "65536", levels},
    };
    for (auto const& [path, sql, shown, allowed] : cases) {
        raw.run("DELETE FROM setting");
        raw.run(fmt::format("INSERT INTO setting VALUES('{}', {})", path, sql));
        for (auto const& reader : all_readers()) {
            if (path.starts_with(reader.prefix)) {
                expect_refused(reader.prefix, EINVAL,
                               fmt::format("{}: {} is stored{}", path, shown, allowed));
            } else {
                read(reader);
            }
        }
    }
}

TEST_F(Records, EverySettingIsCheckedWhenItIsRead) {
    std::size_t tested = 0;
    for (auto const& setting : settings()) {
        if (setting.built_in() || setting.path.starts_with("module.fsm_pon.ont.")) {
            continue;
        }
        raw.run("DELETE FROM setting");
        raw.run(fmt::format("INSERT INTO setting VALUES('{}', 2147483648)", setting.path));
        auto const readers = all_readers();
        auto const reader =
            std::ranges::find_if(readers, [&](auto const& r) { return setting.path.starts_with(r.prefix); });
        expect_refused(
            reader->prefix, EINVAL,
            fmt::format("{}: 2147483648 is stored, but it must be {}", setting.path, allowed(setting.kind)));
        ++tested;
    }
    EXPECT_EQ(tested, 13U + 87 + 17);
}

TEST_F(Records, TwoReceiversThatAreOneFailTheRecord) {
    raw.run("INSERT INTO setting VALUES('syslog.remote.1.address', '10.0.0.1'), ('syslog.remote.3.address', "
            "'10.0.0.1')");
    expect_refused("syslog.remote.", EINVAL,
                   "syslog.remote.1 and syslog.remote.3 are both 10.0.0.1 port 514; receivers must differ in "
                   "address or port");
    raw.run("INSERT INTO setting VALUES('syslog.remote.3.port', 515)");
    read(reader_of("syslog.remote."));
}

TEST_F(Records, APathThatIsNoSettingIsPassedOver) {
    raw.run("INSERT INTO setting VALUES('syslog.file.levels', 99), ('syslog.file.', 99), "
            "('module.snmp.trap', 99), ('module.fsm_pon.ont.17.1', 99), ('module.fsm_pon.ont.1.01', 99), "
            "('module.fsm_pon.port', 99), "
            "('module.logconfig.SELF', 0), ('SYSLOG.FILE.LEVEL', 0), (x'00FF', 1), ('', 1)");
    for (auto const& reader : all_readers()) {
        if (reader.init) {
            Bytes defaults(reader.size);
            reader.init(defaults.data());
            EXPECT_EQ(read(reader), defaults) << reader.prefix;
        } else {
            read(reader);
        }
    }
}

TEST_F(Records, PathsThatAreNoSettingsDoNotHideTheirNeighbours) {
    raw.run("INSERT INTO setting VALUES('syslog.file.a', 1), ('syslog.file.level', 5), "
            "('syslog.file.level.x', 1), ('syslog.file.m', 1), ('syslog.file.path', '/a/'), "
            "('syslog.file.size', 65536), "
            "('syslog.file.z', 1), ('syslog.file.zz', 1)");
    SyslogFileDest file{};
    EXPECT_EQ(getRunDb_CommonGCfg_logging_syslog_file(cfgdb.db(), &file, all_zero_key), 0);
    EXPECT_STREQ(file.path, "/a/");
    EXPECT_EQ(file.size, 65536U);
    EXPECT_EQ(file.level, 5);
}

} // namespace
} // namespace xpon::cfgdb
