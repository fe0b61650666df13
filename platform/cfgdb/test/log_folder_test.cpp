#include "xpon/cfgdb/log_folder.hpp"

#include <gmock/gmock.h>

#include "support.hpp"

namespace xpon::cfgdb {
namespace {

TEST(LogFolders, ThatRootAloneMayWriteAreGoodAlsoBeforeTheyExist) {
    for (auto const* folder :
         {"/", "/usr/", "/usr/bin/../bin/./", "/nonexistent/log/", "/usr/nonexistent/"}) {
        EXPECT_EQ(log_folder_flaw(folder), std::nullopt) << folder;
    }
}

TEST(LogFolders, ThatOthersMayReachAreNot) {
    for (auto const* folder : {"/tmp/", "/tmp/nonexistent/log/", "/usr/../tmp/"}) {
        EXPECT_EQ(log_folder_flaw(folder), "others than root may write /tmp") << folder;
    }
    EXPECT_EQ(log_folder_flaw("/etc/passwd/"), "/etc/passwd is no folder");
}

TEST(LogFolders, AreLookedAtBehindLinks) {
    test::ScratchFolder const scratch;
    std::filesystem::create_directory_symlink("/usr", scratch / "link"); // anybody could lead it elsewhere
    EXPECT_NE(log_folder_flaw(scratch / "link"), std::nullopt);
}

} // namespace
} // namespace xpon::cfgdb
