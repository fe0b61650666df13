#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "integration/followed_board.hpp"
#include "kit/sanitized.hpp"

namespace xpon::test {

/// A board whose programs can be run by a clock that the test sets.
class BoardClock : public FollowedBoard {
  protected:
    enum class Jumps {
        TimeOfDay, ///< how long something takes stays true
        All,       ///< for the program as much time has passed as the clock jumps
    };

    void SetUp() override {
        for (auto const& folder : std::filesystem::directory_iterator{"/usr/lib"}) {
            if (auto const path = folder.path() / "faketime/libfaketimeMT.so.1";
                std::filesystem::exists(path)) {
                library = path;
            }
        }
        if (library.empty()) {
            GTEST_SKIP() << "there is no libfaketime";
        }
        if (sanitized) {
            GTEST_SKIP() << "a sanitizer wants to be loaded first";
        }
        jump("+0");
    }

    /// Sets the clock to this much after or before the right time.
    void jump(std::string const& by) { write_file(offset, by + "\n"); }

    std::vector<std::string> with_own_clock(std::vector<std::string> argv, Jumps jumps) const {
        std::vector<std::string> const clock{
            "env", "LD_PRELOAD=" + library.string(), "FAKETIME_TIMESTAMP_FILE=" + offset.string(),
            "FAKETIME_NO_CACHE=1",
            jumps == Jumps::All ? "FAKETIME_DONT_FAKE_MONOTONIC=0" : "FAKETIME_DONT_FAKE_MONOTONIC=1"};
        argv.insert(argv.begin(), clock.begin(), clock.end());
        return argv;
    }

  private:
    std::filesystem::path library;
    std::filesystem::path offset = scratch / "offset";
};

} // namespace xpon::test
