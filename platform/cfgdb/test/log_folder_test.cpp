#include "xpon/cfgdb/log_folder.hpp"

#include <gmock/gmock.h>

#include "support.hpp"

namespace xpon::cfgdb {
namespace {

using core::Error;
using test::IsError;
using test::IsOk;

TEST(LogFolders, ThatOnlyRootCanWriteToAreGoodEvenBeforeTheyExist) {
    for (auto const* folder :
         {"/", "/usr/", "/usr/bin/../bin/./", "/nonexistent/log/", "/usr/nonexistent/"}) {
        EXPECT_EQ(log_folder_flaw(folder), std::nullopt) << folder;
    }
}

TEST(LogFolders, ThatOthersCanWriteToAreRefused) {
    for (auto const* folder : {"/tmp/", "/tmp/nonexistent/log/", "/usr/../tmp/"}) {
        EXPECT_EQ(log_folder_flaw(folder), "users other than root can write to /tmp") << folder;
    }
    EXPECT_EQ(log_folder_flaw("/etc/passwd/"), "/etc/passwd is not a folder");
}

TEST(LogFolders, AreCheckedBehindLinks) {
    test::ScratchFolder const scratch;
    std::filesystem::create_directory_symlink("/usr", scratch / "link"); // anybody could lead it elsewhere
    EXPECT_NE(log_folder_flaw(scratch / "link"), std::nullopt);
}

TEST(LogFolders, AreCheckedWhenTheyAreSet) {
    test::ScratchFolder const scratch;
    auto const folder = scratch / "db";
    change(folder, {{"syslog.file.path", "/var/lib/board/"}});
    auto transaction = wish({{"syslog.file.path", "/tmp/log/"}, {"syslog.rsh.level", "debug"}});
    auto const refused =
        IsError(Error::InvalidInputArg,
                "syslog.file.path: \"/tmp/log/\" is not allowed; it must be a folder that only root can "
                "write to, such as /var/log/: users other than root can write to /tmp, and whoever can "
                "replace a file there decides what syslog-ng writes to as root");
    EXPECT_THAT(transaction.preview(folder), refused);
    EXPECT_THAT(transaction.commit(folder), refused);
    EXPECT_EQ(stored_settings(folder).value().size(), 1U);
    // What was in force before is put back all the same, or a trial could not be undone.
    Transaction back;
    ASSERT_THAT(back.put_back("syslog.file.path", "/var/lib/board/", "/tmp/log/"), IsOk());
    EXPECT_THAT(back.commit(folder), IsOk());
}

} // namespace
} // namespace xpon::cfgdb
