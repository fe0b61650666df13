#include "xpon/cfgdb/log_folder.hpp"

#include <gmock/gmock.h>

#include "support.hpp"

namespace xpon::cfgdb {
namespace {

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

} // namespace
} // namespace xpon::cfgdb
