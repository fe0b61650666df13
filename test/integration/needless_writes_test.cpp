// Nothing is written that is not new: flash memory wears with every write, and each one delays the start.

#include <map>

#include <sys/stat.h>

#include "integration/board.hpp"
#include "integration/rewrites.hpp"
#include "kit/sanitized.hpp"
#include "xpon/log_config/zlog_files/config_files.hpp"

namespace xpon::test {
namespace {

using testing::Each;
using testing::Pair;
using testing::SizeIs;

class NeedlessWrites : public Board {
  protected:
    static std::map<std::string, ino_t> inodes() {
        std::vector<std::string> paths{syslog_ng_conf};
        for (auto const& file : log_config::zlog_files) {
            paths.push_back(zlog_folder + std::string{file.name});
        }
        std::map<std::string, ino_t> all;
        for (auto const& path : paths) {
            struct stat status{};
            EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
            all.emplace(path, status.st_ino);
        }
        return all;
    }

    /// What the daemon has handed to write(2) and its like since it began, in bytes.
    long bytes_written() const {
        auto const text = contents(proc() / "io");
        return std::stol(text.substr(text.find("wchar: ") + 7));
    }
};

TEST_F(NeedlessWrites, AreNotMadeByAStartWithNothingChanged) {
    start_everything();
    EXPECT_EQ(stop_daemon(), 0);
    auto const before = inodes();
    EXPECT_THAT(before, SizeIs(27));
    start_daemon();
    set({{"syslog.kernel.level", "debug"}}); // is followed once everything else is done
    EXPECT_TRUE(wait_for_text(printk, "7\n"));
    EXPECT_EQ(inodes(), before);
    if (!sanitized) { // a sanitizer writes as well
        EXPECT_LE(bytes_written(), 40'000);
    }
}

TEST_F(NeedlessWrites, AreNotMadeWhenAListHasAFieldThatFails) {
    start_everything();
    Rewrites rewrites;
    set({{"module.*", "debug"}}); // the session manager's field always fails
    EXPECT_TRUE(wait_for_text(zlog_folder + std::string{"NETSERVE.conf"}, ".=DEBUG"));
    set({{"syslog.kernel.level", "debug"}}); // is followed once everything else is done
    EXPECT_TRUE(wait_for_text(printk, "7\n"));
    auto counts = rewrites.count();
    counts.erase("syslog-ng.conf");
    EXPECT_THAT(counts, Each(Pair(testing::_, 1)));
    EXPECT_EQ(counts.count("SNMP.conf") + counts.count("DNA.conf"), 2U);
}

} // namespace
} // namespace xpon::test
