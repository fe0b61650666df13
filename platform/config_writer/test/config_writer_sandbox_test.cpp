#include "xpon/config_writer/config_writer.hpp"

#include <cstring>

#include <gmock/gmock.h>
#include <sys/mount.h>

#include "kit/matchers.hpp"
#include "kit/names_in.hpp"
#include "kit/scratch_folder.hpp"

namespace xpon::config_writer {
namespace {

using core::Error;
using test::IsError;
using test::IsOk;
using test::read_file;
using test::ScratchFolder;
using testing::EndsWith;

/// A file system of 64 KiB for as long as it lives.
class SmallDisk {
  public:
    SmallDisk() {
        EXPECT_EQ(mount("tmpfs", folder.path().c_str(), "tmpfs", 0, "size=64k"), 0) << std::strerror(errno);
    }
    ~SmallDisk() { umount(folder.path().c_str()); }
    SmallDisk(SmallDisk const&) = delete;
    SmallDisk& operator=(SmallDisk const&) = delete;

    std::filesystem::path operator/(std::string const& name) const { return folder / name; }

    void protect() const {
        EXPECT_EQ(mount(nullptr, folder.path().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, "size=64k"), 0);
    }

  private:
    ScratchFolder folder;
};

TEST(ConfigWriterOnASmallDisk, AFullDiskIsAnErrorAndTheOldTextStays) {
    SmallDisk const disk;
    ConfigWriter writer{disk / "x.conf"};
    ASSERT_THAT(writer.write("old"), IsOk());
    EXPECT_THAT(
        writer.write(std::string(100'000, 'x')),
        IsError(Error::CommonError, "Cannot write \"" + (disk / "x.conf").string() +
                                        "\": failed to write its temporary file: No space left on device"));
    EXPECT_EQ(read_file(disk / "x.conf"), "old");
    EXPECT_THAT(test::names_in((disk / "").string()), testing::ElementsAre("x.conf"));
    // What the failed attempt had taken is free again.
    EXPECT_THAT(writer.write(std::string(50'000, 'y')), IsOk());
}

TEST(ConfigWriterOnASmallDisk, AReadOnlyDiskIsAnErrorAndTheOldTextStays) {
    SmallDisk const disk;
    ConfigWriter writer{disk / "x.conf"};
    ASSERT_THAT(writer.write("old"), IsOk());
    disk.protect();
    EXPECT_THAT(writer.write("new"), IsError(Error::CommonError, EndsWith("Read-only file system")));
    EXPECT_EQ(read_file(disk / "x.conf"), "old");
}

} // namespace
} // namespace xpon::config_writer
