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

struct BusFolderTest : testing::Test {
    ScratchFolder const scratch;
};

TEST_F(BusFolderTest, WhatRootCreatesBelongsToTheGroup) {
    // Who may not give anything away keeps it.
    bool const may_give = geteuid() == 0 && chown(scratch.path().c_str(), 0, some_group) == 0;
    auto const expected = may_give ? some_group : getegid();
    BusFolder folder{scratch / "bus", some_group};
    test::write_file(scratch / "bus/socket", "");
    folder.adopt(scratch / "bus/socket");
    EXPECT_EQ(state_of(scratch / "bus").st_gid, expected);
    EXPECT_EQ(state_of(scratch / "bus").st_mode & 07777U, 02750U);
    EXPECT_EQ(state_of(scratch / "bus/socket").st_gid, expected);
    EXPECT_EQ(state_of(scratch / "bus/socket").st_uid, geteuid());
}

TEST_F(BusFolderTest, WithoutTheGroupFilesKeepTheGroupOfTheProcess) {
    BusFolder const folder{scratch / "bus", std::nullopt};
    EXPECT_EQ(state_of(scratch / "bus").st_gid, getegid());
    EXPECT_EQ(state_of(scratch / "bus").st_mode & 07777U, 02750U);
}

TEST_F(BusFolderTest, AnExistingFolderStaysAsItIs) {
    std::filesystem::create_directory(scratch / "bus");
    ASSERT_EQ(chmod((scratch / "bus").c_str(), 0751), 0);
    BusFolder const folder{scratch / "bus", some_group};
    EXPECT_EQ(state_of(scratch / "bus").st_mode & 07777U, 0751U);
    EXPECT_EQ(state_of(scratch / "bus").st_gid, getegid());
}

TEST_F(BusFolderTest, ATrailingSlashDoesNotChangeTheFolder) {
    BusFolder const folder{(scratch / "parent/bus").string() + "/", std::nullopt};
    EXPECT_EQ(folder.path(), scratch / "parent/bus");
    EXPECT_EQ(state_of(scratch / "parent/bus").st_mode & 07777U, 02750U);
}

TEST_F(BusFolderTest, RemovesItsOwnSocketsAndNothingElseAtTheEnd) {
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

TEST_F(BusFolderTest, IsFreeAgainAfterwards) {
    {
        BusFolder const folder{scratch / "bus", std::nullopt};
        EXPECT_THROW((BusFolder{scratch / "bus", std::nullopt}), std::runtime_error);
    }
    BusFolder const folder{scratch / "bus", std::nullopt};
    EXPECT_EQ(test::read_file(scratch / "bus/lock"), std::to_string(getpid()));
}

/// What can stand in the place of a file of the bus.
struct Obstacle {
    char const* name;
    void (*make)(std::filesystem::path const& path);
};

Obstacle const obstacles[]{
    {"a FIFO", [](std::filesystem::path const& path) { ASSERT_EQ(mkfifo(path.c_str(), 0600), 0); }},
    {"an empty folder", [](std::filesystem::path const& path) { create_directory(path); }},
    {"a folder", [](std::filesystem::path const& path) { create_directories(path / "in"); }},
    {"a link to a file",
     [](std::filesystem::path const& path) {
         test::write_file(path.parent_path().parent_path() / "target", "kept");
         create_symlink(path.parent_path().parent_path() / "target", path);
     }},
    {"a dangling link", [](std::filesystem::path const& path) { create_symlink("nowhere", path); }},
    {"a socket",
     [](std::filesystem::path const& path) { ASSERT_EQ(mknod(path.c_str(), S_IFSOCK | 0600, 0), 0); }},
    {"a file", [](std::filesystem::path const& path) { test::write_file(path, "old"); }},
};

TEST_F(BusFolderTest, TakesTheLockWhateverIsInItsPlace) {
    for (auto const& [name, make] : obstacles) {
        SCOPED_TRACE(name);
        ScratchFolder const scratch;
        create_directory(scratch / "bus");
        make(scratch / "bus/lock");
        BusFolder const folder{scratch / "bus", std::nullopt};
        EXPECT_EQ(state_of(scratch / "bus/lock").st_mode & S_IFMT, static_cast<mode_t>(S_IFREG));
        EXPECT_EQ(test::read_file(scratch / "bus/lock"), std::to_string(getpid()));
        EXPECT_THROW((BusFolder{scratch / "bus", std::nullopt}), std::runtime_error);
        if (exists(scratch / "target")) {
            EXPECT_EQ(test::read_file(scratch / "target"), "kept");
        }
    }
}

TEST_F(BusFolderTest, MakesRoomForASocketWhateverIsThere) {
    for (auto const& [name, make] : obstacles) {
        SCOPED_TRACE(name);
        ScratchFolder const scratch;
        BusFolder const folder{scratch / "bus", std::nullopt};
        make(scratch / "bus/publish");
        EXPECT_EQ(folder.make_room("publish"), scratch / "bus/publish");
        EXPECT_FALSE(exists(symlink_status(scratch / "bus/publish")));
        if (exists(scratch / "target")) {
            EXPECT_EQ(test::read_file(scratch / "target"), "kept");
        }
    }
}

TEST_F(BusFolderTest, AFolderThatIsNotEmptyIsMovedAsideWithWhatIsInIt) {
    BusFolder const folder{scratch / "bus", std::nullopt};
    create_directory(scratch / "bus/publish");
    test::write_file(scratch / "bus/publish/file", "kept");
    folder.make_room("publish");
    std::vector<std::string> kept;
    for (auto const& entry : std::filesystem::directory_iterator{scratch / "bus"}) {
        if (entry.is_directory()) {
            kept.push_back(test::read_file(entry.path() / "file"));
            EXPECT_THAT(entry.path().filename().string(), testing::StartsWith("publish."));
        }
    }
    EXPECT_THAT(kept, testing::ElementsAre("kept"));
}

TEST_F(BusFolderTest, NamesWhatItCannotMove) {
    if (geteuid() == 0) {
        GTEST_SKIP() << "root may move everything";
    }
    BusFolder const folder{scratch / "bus", std::nullopt};
    create_directories(scratch / "bus/publish/in");
    ASSERT_EQ(chmod((scratch / "bus").c_str(), 0500), 0);
    EXPECT_THAT(
        [&] { folder.make_room("publish"); },
        testing::ThrowsMessage<std::runtime_error>(
            "remove what is in the way: " + (scratch / "bus/publish").string() + ": Permission denied"));
    ASSERT_EQ(chmod((scratch / "bus").c_str(), 0700), 0);
}

TEST_F(BusFolderTest, AdoptingWhatIsNotThereFails) {
    BusFolder folder{scratch / "bus", std::nullopt};
    EXPECT_THAT([&] { folder.adopt(scratch / "bus/socket"); },
                testing::ThrowsMessage<std::runtime_error>(
                    "cannot examine " + (scratch / "bus/socket").string() + ": No such file or directory"));
}

} // namespace
} // namespace xpon::ipc
