// Nothing is written that is not new: flash memory wears with every write, and each one delays the start.

#include <map>

#include <sys/inotify.h>
#include <sys/stat.h>

#include "integration/board.hpp"
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
    core::UniqueFd const watch{inotify_init1(IN_CLOEXEC | IN_NONBLOCK)};
    ASSERT_GE(inotify_add_watch(watch.get(), zlog_folder, IN_MOVED_TO), 0);
    set({{"module.*", "debug"}}); // the session manager's field always fails
    EXPECT_TRUE(wait_for_text(zlog_folder + std::string{"NETSERVE.conf"}, ".=DEBUG"));
    set({{"syslog.kernel.level", "debug"}}); // is followed once everything else is done
    EXPECT_TRUE(wait_for_text(printk, "7\n"));
    std::map<std::string, int> renames;
    alignas(inotify_event) char buffer[65536];
    while (true) {
        auto const size = read(watch.get(), buffer, sizeof buffer);
        if (size <= 0) {
            break;
        }
        for (ssize_t at = 0; at < size;) {
            auto const& event = *reinterpret_cast<inotify_event const*>(buffer + at);
            ++renames[event.name];
            at += ssize_t{sizeof event} + event.len;
        }
    }
    EXPECT_THAT(renames, Each(Pair(testing::_, 1)));
    EXPECT_EQ(renames.count("SNMP.conf") + renames.count("DNA.conf"), 2U);
}

} // namespace
} // namespace xpon::test
