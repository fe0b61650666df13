// A user who may read the database and not write it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "logctl.hpp"

namespace xpon::logctl {
namespace {

class Reader : public testing::Test {
  protected:
    void SetUp() override {
        EXPECT_EQ(logctl({"set", "syslog.rsh.level=debug"}), silence);
        for (auto const& file : std::filesystem::directory_iterator{logctl.database}) {
            chmod(file.path().c_str(), 0444);
        }
        chmod(logctl.database.c_str(), 0555);
        if (geteuid() == 0) { // root may write all the same, unless it has no capability
            logctl.prefix = {"setpriv", "--bounding-set=-all", "--inh-caps=-all"};
        }
    }
    void TearDown() override { chmod(logctl.database.c_str(), 0755); }

    Logctl logctl;
};

TEST_F(Reader, UsesEverythingThatOnlyReads) {
    for (Logctl::Words const& words : {Logctl::Words{"show"},
                                       {"modules"},
                                       {"preview", "SNMP"},
                                       {"preview", "syslog-ng"},
                                       {"history"},
                                       {"export"},
                                       {"set", "--dry-run", "syslog.rsh.level=info"},
                                       {"reset", "--dry-run", "*"},
                                       {"rollback", "--dry-run", "0"},
                                       {"commit-confirm", "--dry-run", "1", "syslog.rsh.level=info"},
                                       {"watch", "--timeout", "0.01"}}) {
        EXPECT_EQ(logctl(words).status, 0) << words.front() << "\n" << logctl(words).err;
    }
    EXPECT_THAT(logctl({"status"}).out, testing::HasSubstr("database   readable\n"));
    EXPECT_THAT(logctl({"check"}).out, testing::StartsWith("settings: 1 stored, all valid\n"));
}

TEST_F(Reader, IsToldThatItMayNotWrite) {
    auto const expected = refused(logctl.file.string() + ": cannot be written (Permission denied)");
    test::write_file(logctl.scratch / "import", R"({"version": 1, "settings": {}})");
    for (Logctl::Words const& words : {Logctl::Words{"set", "syslog.rsh.level=info"},
                                       {"reset", "*"},
                                       {"import", (logctl.scratch / "import").string()},
                                       {"commit-confirm", "1", "syslog.rsh.level=info"},
                                       {"confirm", "1"},
                                       {"abort", "1"}}) {
        EXPECT_EQ(logctl(words), expected) << words.front();
    }
    EXPECT_EQ(logctl({"rollback", "0"}).err, expected.err);
}

} // namespace
} // namespace xpon::logctl
