#include "xpon/system_wrapper/system_wrapper.hpp"

#include <thread>

#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include "kit/matchers.hpp"
#include "kit/scratch_folder.hpp"

namespace xpon::system_wrapper {
namespace {

using core::Error;
using core::ErrorPayload;
using test::IsError;
using test::ScratchFolder;
using test::write_file;

/// Runs a command on a thread whose root folder holds nothing but /dev, and in there `devices`.
core::Result<int> run_in_empty_root(std::string const& command, std::vector<std::string> const& devices) {
    ScratchFolder const root;
    std::filesystem::create_directory(root / "dev");
    core::Result<int> result = ErrorPayload{Error::InvalidState, "the root folder could not be made"};
    std::thread{[&] {
        ASSERT_EQ(unshare(CLONE_NEWNS), 0);
        ASSERT_EQ(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
        for (auto const& device : devices) {
            auto const place = root.path().string() + device;
            write_file(place, "");
            ASSERT_EQ(mount(device.c_str(), place.c_str(), nullptr, MS_BIND, nullptr), 0);
        }
        ASSERT_EQ(chroot(root.path().c_str()), 0);
        ASSERT_EQ(chdir("/"), 0);
        result = SystemWrapper{}.execute(command);
    }}.join();
    return result;
}

TEST(SystemWrapperInAnEmptyRoot, AMissingShellIsNamed) {
    EXPECT_THAT(
        run_in_empty_root("true", {"/dev/null"}),
        IsError(Error::CommonError, "Cannot run /bin/bash for command \"true\": No such file or directory"));
}

TEST(SystemWrapperInAnEmptyRoot, AMissingEmptyInputIsNamed) {
    EXPECT_THAT(
        run_in_empty_root("true", {}),
        IsError(Error::CommonError, "Cannot open /dev/null for command \"true\": No such file or directory"));
}

} // namespace
} // namespace xpon::system_wrapper
