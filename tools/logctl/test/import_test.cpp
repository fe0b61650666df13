// export and import.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logctl.hpp"

namespace xpon::logctl {
namespace {

class Import : public testing::Test {
  protected:
    Outcome import(std::string const& content, Logctl::Words const& options = {}) const {
        test::write_file(file, content);
        Logctl::Words words{"import", file};
        words.insert(words.end(), options.begin(), options.end());
        return logctl(words);
    }

    Logctl logctl;
    std::filesystem::path file = logctl.scratch / "settings.json";
    std::string some =
        R"({"version": 1, "settings": {"syslog.file.size": 65536, "module.snmp.TRAP": "debug"}})";
};

TEST_F(Import, TakesWhatExportWrites) {
    EXPECT_EQ(logctl({"set", "syslog.remote.1.address=10.0.0.1", "syslog.remote.1.port=1514",
                      "syslog.file.path=/run/", "module.fsm_pon.ont.3.17=debug"}),
              silence);
    auto const exported = logctl({"export"});
    EXPECT_EQ(exported, printed(R"(
{
  "version": 1,
  "settings": {
    "syslog.file.path": "/run/",
    "syslog.remote.1.address": "10.0.0.1",
    "syslog.remote.1.port": "1514",
    "module.fsm_pon.ont.3.17": "debug"
  }
}
)"));
    EXPECT_EQ(logctl({"reset", "*"}), silence);
    EXPECT_EQ(logctl({"set", "syslog.rsh.level=debug"}), silence);
    EXPECT_EQ(import(exported.out, {"-v"}), printed(R"(
syslog.file.path: /var/log/ -> /run/
syslog.remote.1.address: 0.0.0.0 -> 10.0.0.1
syslog.remote.1.port: 514 -> 1514
syslog.rsh.level: debug -> notice
module.fsm_pon.ont.3.17: notice -> debug
)"));
    EXPECT_EQ(logctl({"export"}), exported);
    EXPECT_EQ(import(exported.out, {"-v", "--changed-exit"}), silence);
}

TEST_F(Import, SaysByItsStatusWhetherItChangedSomething) {
    EXPECT_EQ(import(some, {"--changed-exit"}), (Outcome{3, "", ""}));
    EXPECT_EQ(import(some, {"--changed-exit"}), silence);
    EXPECT_EQ(import(some), silence);
}

TEST_F(Import, ADryRunOnlySaysWhatItWouldChange) {
    EXPECT_EQ(logctl({"set", "syslog.rsh.level=debug"}), silence);
    Outcome const told{3, text(R"(
syslog.file.size: 1048576 -> 65536
syslog.rsh.level: debug -> notice
module.snmp.TRAP: notice -> debug
)"),
                       ""};
    EXPECT_EQ(import(some, {"--changed-exit", "--dry-run"}), told);
    EXPECT_EQ(import(some, {"--changed-exit", "--dry-run"}), told);
}

TEST_F(Import, LeavesWhatTheFileDoesNotNameIfItIsToBeMerged) {
    EXPECT_EQ(logctl({"set", "syslog.rsh.level=debug"}), silence);
    EXPECT_EQ(import(some, {"--merge", "-v"}), printed(R"(
syslog.file.size: 1048576 -> 65536
module.snmp.TRAP: notice -> debug
)"));
}

TEST_F(Import, OfEveryLevelOfEveryOntIsOneTransaction) {
    EXPECT_EQ(logctl({"set", "module.fsm_pon.ont.*=debug"}), silence);
    auto const exported = logctl({"export"}).out;
    EXPECT_EQ(logctl({"reset", "*"}), silence);
    EXPECT_EQ(import(exported), silence);
    EXPECT_EQ(logctl({"export"}).out, exported);
}

TEST_F(Import, RefusesWhatIsNotAConfigurationAndLeavesNoTrace) {
    EXPECT_EQ(logctl({"reset", "*"}), silence);
    auto const with = [](std::string const& settings) {
        return R"({"version": 1, "settings": {)" + settings + "}}";
    };
    std::pair<std::string, std::string> const cases[] = {
        {"", "invalid JSON near byte 1 (\"\")"},
        {"[]", "an array is not an object"},
        {"{}", "\"version\" is missing"},
        {R"({"version": 1})", "\"settings\" is missing"},
        {R"({"version": 2, "settings": {}})", "\"version\" is the number 2; it must be the number 1"},
        {R"({"version": 1, "settings": []})",
         "\"settings\" is an array; it must be an object of paths and values"},
        {R"({"version": 1, "setting": {}})",
         "unknown name \"setting\"; only \"version\" and \"settings\" are allowed"},
        {with(R"("syslog.rsh.level": "debug", "syslog.rsh.level": "info")"),
         "\"syslog.rsh.level\" appears twice"},
        {with(R"("syslog.rsh.level": null)"),
         "\"syslog.rsh.level\" is null; it must be a string or a whole number"},
        {with(R"("syslog.rsh.level": 1.5)"),
         "\"syslog.rsh.level\" is the number \"1.5\"; it must be a string or a whole number"},
        {with(R"("syslog.rsh.level": {"a": 1})"),
         "\"syslog.rsh.level\" is an object; it must be a string or a whole number"},
        {with("\"syslog.rsh.level\": \"\xff\""), "invalid JSON near byte 50 (\"\\x22\\xff\")"},
        {std::string(1000, '['), "an array is not an object"},
        {std::string(5'000'000, ' '), "a configuration has at most 4194304 bytes"},
    };
    for (auto const& [content, reason] : cases) {
        EXPECT_EQ(import(content), refused(file.string() + ": " + reason));
    }
    std::pair<std::string, std::string> const values[] = {
        {R"("syslog.rsh.level": "debug", "syslog.file.size": -1)",
         R"(syslog.file.size: "-1" is not allowed; it must be 65536 to 1073741824 bytes)"},
        {R"("syslog.rsh.level": "debug", "syslog.file.path": "/tmp/\n@include \"/etc/passwd\"\n/")",
         R"(syslog.file.path: "/tmp/\x0a@include \x22/etc/passwd\x22\x0a/" is not allowed; it must be an absolute path that ends in '/', at most 31 bytes of A-Z a-z 0-9 . _ / -)"},
        {R"("module.snmp.trap": "debug")",
         R"("module.snmp.trap": no such setting; did you mean "module.snmp.TRAP"?)"},
        {R"("module.logconfig.SELF": "debug")", "module.logconfig.SELF: built in and cannot be set"},
        {R"("syslog.remote.1.address": "10.0.0.1", "syslog.remote.3.address": "10.0.0.1")",
         "syslog.remote.1 and syslog.remote.3 are both 10.0.0.1 port 514; receivers must differ in address "
         "or port"},
    };
    for (auto const& [settings, reason] : values) {
        EXPECT_EQ(import(with(settings)), refused(reason));
    }
    EXPECT_EQ(logctl({"history", "--json"}).out, "[]\n");
    EXPECT_EQ(logctl({"import", "/no/such"}),
              refused("/no/such: cannot be opened (No such file or directory)"));
    EXPECT_EQ(logctl({"import", "/"}), refused("/: cannot be read (Is a directory)"));
    EXPECT_EQ(logctl({"import", "-"}), // nothing is there
              refused("standard input: invalid JSON near byte 1 (\"\")"));
}

} // namespace
} // namespace xpon::logctl
