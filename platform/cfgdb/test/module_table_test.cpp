#include "xpon/cfgdb/module_table.hpp"

#include <array>
#include <cerrno>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support.hpp"

namespace xpon::cfgdb {
namespace {

using testing::ElementsAreArray;

struct ExpectedModule {
    std::uint32_t value;
    std::string descriptor;
    std::string stem;
    std::string subjects; // in order, separated by blanks
    std::function<int(char*, std::uint32_t)> name_subject;
};

template <class Subjects>
std::function<int(char*, std::uint32_t)> lookup(int (*name)(char*, Subjects)) {
    return [name](char* out, std::uint32_t index) { return name(out, Subjects{index}); };
}

std::vector<ExpectedModule> expected_modules() {
    // clang-format off
    return {
        {0,  "ModuleAlarmMgr",          "ALARMMGR", "SELF",                                       lookup(get_alarmmgr_subjects_from_index)},
        {1,  "ModuleDna",               "DNA",      "SELF IPC CFGDB PORT VLAN QOS EVENT",         lookup(get_dna_subjects_from_index)},
        {2,  "ModuleFsmPon",            "FSM",      "SELF ONT PORT OMCI PLOAM MIB AUTH PROFILE SERVICE ALARM RESYNC", lookup(get_fsm_subjects_from_index)},
        {3,  "ModuleIgmp",              "IGMP",     "SELF RX TX PROXY QUERIER GROUP MVLAN",       lookup(get_igmp_subjects_from_index)},
        {4,  "ModuleDhcpRa",            "DHCPRA",   "SELF RX TX LEASE OPT82",                     lookup(get_dhcpra_subjects_from_index)},
        {5,  "ModuleIpsg",              "IPSG",     "SELF BIND FILTER",                           lookup(get_ipsg_subjects_from_index)},
        {6,  "ModulePppoeIa",           "PPPOEIA",  "SELF RX TX SESS TAG",                        lookup(get_pppoe_ia_subjects_from_index)},
        {7,  "ModuleLldp",              "LLDP",     "SELF RX TX NEIGHBOR TLV",                    lookup(get_lldp_subjects_from_index)},
        {8,  "ModuleL3Agent",           "L3AGENT",  "SELF ROUTE",                                 lookup(get_l3_agent_subjects_from_index)},
        {9,  "ModuleSnmp",              "SNMP",     "SELF IPC CFGDB GET SET TRAP CUSTOM_1LAYER",  lookup(get_snmp_subjects_from_index)},
        {11, "ModuleSessionMgr",        "SESSMGR",  "SELF IPC",                                   lookup(get_sessionmgr_subjects_from_index)},
        {13, "ModuleCli",               "CLI",      "SELF IPC CFGDB PARSER SHOW CONFIG EXEC AUTH HISTORY CUSTOM_1LAYER", lookup(get_cli_subjects_from_index)},
        {16, "ModuleSwitch",            "SWITCH",   "SELF IPC CFGDB PORT 1LAYER",                 lookup(get_switch_subjects_from_index)},
        {17, "ModuleLacp",              "LACP",     "SELF RX TX MUX PARTNER",                     lookup(get_lacp_subjects_from_index)},
        {18, "ModuleDatapath",          "DATAPATH", "SELF FLOW METER",                            lookup(get_datapath_subjects_from_index)},
        {19, "ModuleArp",               "ARP",      "SELF RX TX PROXY",                           lookup(get_arp_subjects_from_index)},
        {20, "ModuleApiService",        "API-SVC",  "SELF IPC CFGDB CUSTOM_1LAYER",               lookup(get_apiservice_subjects_from_index)},
        {21, "ModuleBootloaderUpgrade", "BOOTUPG",  "SELF",                                       lookup(get_bootloaderupgrade_subjects_from_index)},
        {22, "ModuleWatchdog",          "WATCHDOG", "SELF",                                       lookup(get_watchdog_subjects_from_index)},
        {23, "ModulePtable",            "PTABLE",   "SELF",                                       lookup(get_ptable_subjects_from_index)},
        {24, "ModuleOntConnections",    "ONTCONN",  "SELF",                                       lookup(get_ontconnections_subjects_from_index)},
        {25, "ModuleElection",          "ELECTION", "SELF IPC",                                   lookup(get_election_subjects_from_index)},
        {26, "ModuleFileMgr",           "FILE-MGR", "SELF IPC",                                   lookup(get_filemgr_subjects_from_index)},
        {27, "ModuleFirmware",          "FW-MGR",   "SELF IPC CFGDB",                             lookup(get_firmware_subjects_from_index)},
        {28, "ModuleIpcBroker",         "BROKER",   "SELF",                                       lookup(get_ipcbroker_subjects_from_index)},
        {29, "ModuleNtpdConfig",        "NTPD-CFG", "SELF IPC CFGDB",                             lookup(get_ntpdconfig_subjects_from_index)},
        {30, "ModuleSlotMgr",           "SLOT-MGR", "SELF IPC CFGDB",                             lookup(get_slotmgr_subjects_from_index)},
        {31, "ModuleSnmpdConf",         "SNMPDCFG", "SELF IPC CFGDB",                             lookup(get_snmpdconf_subjects_from_index)},
        {32, "ModuleSystemMgr",         "SYS-MGR",  "SELF IPC CFGDB",                             lookup(get_systemmgr_subjects_from_index)},
        {33, "ModuleUserdConf",         "USERDCFG", "SELF IPC CFGDB",                             lookup(get_userdconfig_subjects_from_index)},
        {34, "ModuleWebServerConf",     "WEB-CFG",  "SELF IPC CFGDB",                             lookup(get_webserverconf_subjects_from_index)},
        {35, "ModuleAutoBackupMgr",     "AUTOBKP",  "SELF IPC CFGDB XFER CUSTOM_1LAYER",          lookup(get_autobackupmgr_subjects_from_index)},
        {36, "ModuleConfigMgr",         "CFG-MGR",  "SELF IPC CFGDB",                             lookup(get_configmgr_subjects_from_index)},
        {37, "ModuleAlarm",             "ALARM",    "SELF",                                       lookup(get_alarm_subjects_from_index)},
        {38, "ModuleLogConfig",         "LOG-CFG",  "SELF IPC CFGDB",                             lookup(get_logconfig_subjects_from_index)},
        {39, "ModuleAcsCustom",         "ACS_CUST", "SELF IPC CFGDB",                             lookup(get_acscustom_subjects_from_index)},
        {40, "ModuleAcsConfigDump",     "ACS_DUMP", "SELF",                                       lookup(get_acsconfigdump_subjects_from_index)},
        {41, "ModuleAcsdConfig",        "ACSD-CFG", "SELF IPC CFGDB",                             lookup(get_acsdconfig_subjects_from_index)},
        {42, "ModuleAaaConf",           "AAA-CFG",  "SELF IPC CFGDB",                             lookup(get_aaaconf_subjects_from_index)},
        {43, "ModuleNetserve",          "NETSERVE", "SELF IPC",                                   lookup(get_netserve_subjects_from_index)},
    };
    // clang-format on
}

std::vector<std::string> words(std::string const& text) {
    std::istringstream in{text};
    return {std::istream_iterator<std::string>{in}, {}};
}

/// A caller's buffer of 15 bytes with a guard behind it.
struct Buffer {
    std::array<char, 15> name;
    std::array<char, 17> guard;

    Buffer() {
        name.fill('#');
        guard.fill('#');
    }
    bool untouched() const {
        return std::string_view{name.data(), name.size()} == std::string(name.size(), '#') && guard_intact();
    }
    bool guard_intact() const {
        return std::string_view{guard.data(), guard.size()} == std::string(guard.size(), '#');
    }
};

TEST(ModuleNames, EveryModuleHasItsStem) {
    for (auto const& module : expected_modules()) {
        Buffer buffer;
        EXPECT_EQ(get_modules_names_from_index(buffer.name.data(), Modules_names{module.value}), 0)
            << module.descriptor;
        EXPECT_STREQ(buffer.name.data(), module.stem.c_str());
        EXPECT_TRUE(buffer.guard_intact()) << module.descriptor;
    }
}

TEST(ModuleNames, ANumberOutsideTheCatalogueIsRefusedAndTheBufferUntouched) {
    for (std::uint32_t const value : {10U, 12U, 14U, 15U, 44U, 0x80000000U, 0xFFFFFFFFU}) {
        Buffer buffer;
        char* const name = buffer.name.data();
        EXPECT_TRUE(is_refused([&] { return get_modules_names_from_index(name, Modules_names{value}); }))
            << value;
        EXPECT_TRUE(buffer.untouched()) << value;
    }
}

TEST(ModuleNames, ANullBufferIsRefused) {
    EXPECT_TRUE(is_refused([&] { return get_modules_names_from_index(nullptr, Modules_names{0}); }));
}

TEST(SubjectNames, EveryModuleNamesItsSubjectsInOrder) {
    for (auto const& module : expected_modules()) {
        auto const subjects = words(module.subjects);
        for (std::uint32_t i = 0; i < subjects.size(); ++i) {
            Buffer buffer;
            EXPECT_EQ(module.name_subject(buffer.name.data(), i), 0) << module.descriptor << i;
            EXPECT_EQ(buffer.name.data(), subjects[i]);
            EXPECT_TRUE(buffer.guard_intact()) << module.descriptor << i;
        }
    }
}

TEST(SubjectNames, AnIndexBehindTheLastSubjectIsRefusedAndTheBufferUntouched) {
    for (auto const& module : expected_modules()) {
        auto const count = static_cast<std::uint32_t>(words(module.subjects).size());
        for (std::uint32_t const index : {count, count + 1, 0xFFFFFFFFU}) {
            Buffer buffer;
            EXPECT_TRUE(is_refused([&] { return module.name_subject(buffer.name.data(), index); }))
                << module.descriptor << index;
            EXPECT_TRUE(buffer.untouched()) << module.descriptor << index;
        }
    }
}

TEST(SubjectNames, ANullBufferIsRefused) {
    for (auto const& module : expected_modules()) {
        EXPECT_TRUE(is_refused([&] { return module.name_subject(nullptr, 0); })) << module.descriptor;
    }
}

TEST(SubjectNames, LeaveErrnoAloneOnSuccess) {
    Buffer buffer;
    errno = 7;
    EXPECT_EQ(get_fsm_subjects_from_index(buffer.name.data(), Fsm_subjects{10}), 0);
    EXPECT_EQ(get_modules_names_from_index(buffer.name.data(), Modules_names{43}), 0);
    EXPECT_EQ(errno, 7);
}

TEST(Catalogue, ListsEveryModuleWithItsNames) {
    auto const expected = expected_modules();
    ASSERT_EQ(modules().size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        auto const& module = modules()[i];
        EXPECT_EQ(module.value, expected[i].value);
        EXPECT_EQ(module.descriptor, expected[i].descriptor);
        EXPECT_EQ(module.stem, expected[i].stem);
        EXPECT_THAT(std::vector(module.subjects.begin(), module.subjects.end()),
                    ElementsAreArray(words(expected[i].subjects)));
        EXPECT_EQ(find_module(module.value), &module);
    }
    EXPECT_EQ(find_module(Modules_names{10}), nullptr);
}

TEST(Catalogue, EighteenModulesAreStoredEachUnderItsFieldIdentifier) {
    std::vector<std::pair<std::string_view, std::uint32_t>> stored;
    for (auto const& module : modules()) {
        if (!module.built_in()) {
            stored.emplace_back(module.name, module.field_id);
        }
    }
    std::vector<std::pair<std::string_view, std::uint32_t>> const expected{
        {"alarmmgr", 58}, {"dna", 59},  {"fsm_pon", 60},  {"igmp", 61}, {"dhcpra", 62},     {"ipsg", 64},
        {"pppoe_ia", 65}, {"lldp", 66}, {"l3_agent", 68}, {"snmp", 69}, {"sessionmgr", 71}, {"cli", 73},
        {"switch", 78},   {"lacp", 67}, {"datapath", 79}, {"arp", 63},  {"acs_custom", 77}, {"netserve", 76},
    };
    EXPECT_EQ(stored, expected);
}

TEST(Catalogue, BuiltInModulesHaveTheNameOfTheirLookup) {
    std::vector<std::string_view> names;
    for (auto const& module : modules()) {
        if (module.built_in()) {
            names.push_back(module.name);
        }
    }
    EXPECT_THAT(names, testing::ElementsAre("apiservice", "bootloaderupgrade", "watchdog", "ptable",
                                            "ontconnections", "election", "filemgr", "firmware", "ipcbroker",
                                            "ntpdconfig", "slotmgr", "snmpdconf", "systemmgr", "userdconfig",
                                            "webserverconf", "autobackupmgr", "configmgr", "alarm",
                                            "logconfig", "acsconfigdump", "acsdconfig", "aaaconf"));
}

} // namespace
} // namespace xpon::cfgdb
