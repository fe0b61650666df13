#include "broker/bus_folder.hpp"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "kit/scratch_folder.hpp"

namespace xpon::ipc {
namespace {

using test::ScratchFolder;

constexpr gid_t some_group = 12345;

struct stat state_of(std::filesystem::path const& path) {
    struct stat state{};
    EXPECT_EQ(lstat(path.c_str(), &state), 0) << path;
    return state;
}

TEST(BusFolder, WhatRootCreatesBelongsToTheGroup) {
    ScratchFolder const scratch;
    // Who may not give anything away keeps it.
    bool const may_give = geteuid() == 0 && chown(scratch.path().c_str(), 0, some_group) == 0;
    auto const expected = may_give ? some_group : getegid();
    BusFolder folder{scratch / "bus", some_group};
    test::write_file(scratch / "bus/socket", "");
    folder.adopt(scratch / "bus/socket");
    EXPECT_EQ(state_of(scratch / "bus").st_gid, expected);
    EXPECT_EQ(state_of(scratch / "bus").st_mode & 07777U, 02770U);
    EXPECT_EQ(state_of(scratch / "bus/socket").st_gid, expected);
    EXPECT_EQ(state_of(scratch / "bus/socket").st_uid, geteuid());
}

TEST(BusFolder, WithoutTheGroupItAllStaysWithTheProcess) {
    ScratchFolder const scratch;
    BusFolder const folder{scratch / "bus", std::nullopt};
    EXPECT_EQ(state_of(scratch / "bus").st_gid, getegid());
    EXPECT_EQ(state_of(scratch / "bus").st_mode & 07777U, 02770U);
}

TEST(BusFolder, AFolderThatIsThereStaysAsItIs) {
    ScratchFolder const scratch;
    std::filesystem::create_directory(scratch / "bus");
    ASSERT_EQ(chmod((scratch / "bus").c_str(), 0751), 0);
    BusFolder const folder{scratch / "bus", some_group};
    EXPECT_EQ(state_of(scratch / "bus").st_mode & 07777U, 0751U);
    EXPECT_EQ(state_of(scratch / "bus").st_gid, getegid());
}

TEST(BusFolder, ATrailingSlashDoesNotChangeTheFolder) {
    ScratchFolder const scratch;
    BusFolder const folder{(scratch / "parent/bus").string() + "/", std::nullopt};
    EXPECT_EQ(folder.path(), scratch / "parent/bus");
    EXPECT_EQ(state_of(scratch / "parent/bus").st_mode & 07777U, 02770U);
}

TEST(BusFolder, AtTheEndItsOwnSocketsGoAndAllElseStays) {
    ScratchFolder const scratch;
    {
        BusFolder folder{scratch / "bus", std::nullopt};
        for (auto const* const name : {"bus/own", "bus/replaced", "bus/foreign", "bus/gone"}) {
            test::write_file(scratch / name, name);
        }
        folder.adopt(scratch / "bus/own");
        folder.adopt(scratch / "bus/replaced");
        folder.adopt(scratch / "bus/gone");
        test::write_file(scratch / "bus/new", "new");
        std::filesystem::rename(scratch / "bus/new", scratch / "bus/replaced");
        std::filesystem::remove(scratch / "bus/gone");
    }
    EXPECT_FALSE(exists(scratch / "bus/own"));
    EXPECT_FALSE(exists(scratch / "bus/gone"));
    EXPECT_EQ(test::read_file(scratch / "bus/replaced"), "new");
    EXPECT_EQ(test::read_file(scratch / "bus/foreign"), "bus/foreign");
}

TEST(BusFolder, IsFreeAgainAfterwards) {
    ScratchFolder const scratch;
    {
        BusFolder const folder{scratch / "bus", std::nullopt};
        EXPECT_THROW((BusFolder{scratch / "bus", std::nullopt}), std::runtime_error);
    }
    BusFolder const folder{scratch / "bus", std::nullopt};
    EXPECT_EQ(test::read_file(scratch / "bus/lock"), std::to_string(getpid()));
}

TEST(BusFolder, AdoptingWhatIsNotThereFails) {
    ScratchFolder const scratch;
    BusFolder folder{scratch / "bus", std::nullopt};
    EXPECT_THAT([&] { folder.adopt(scratch / "bus/socket"); },
                testing::ThrowsMessage<std::runtime_error>(
                    "cannot examine " + (scratch / "bus/socket").string() + ": No such file or directory"));
}

} // namespace
} // namespace xpon::ipc
