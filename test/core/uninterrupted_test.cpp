#include "core/uninterrupted.hpp"

#include <vector>

#include <gmock/gmock.h>

namespace xpon::core {
namespace {

struct Outcome {
    long result;
    int error;
};

/// Gives one outcome after the other, as a system call would.
class Calls {
  public:
    explicit Calls(std::vector<Outcome> planned)
      : outcomes{std::move(planned)} {}

    long operator()() {
        auto const [result, error] = outcomes.at(made++);
        errno = error;
        return result;
    }

    std::size_t made = 0;

  private:
    std::vector<Outcome> outcomes;
};

TEST(Uninterrupted, ACallThatSucceedsIsMadeOnce) {
    Calls calls{{{7, 0}}};
    EXPECT_EQ(uninterrupted([&] { return calls(); }), 7);
    EXPECT_EQ(calls.made, 1U);
}

TEST(Uninterrupted, WhatErrnoWasBeforeDoesNotRepeatIt) {
    Calls calls{{{0, EINTR}}};
    EXPECT_EQ(uninterrupted([&] { return calls(); }), 0);
    EXPECT_EQ(calls.made, 1U);
}

TEST(Uninterrupted, ACallIsRepeatedForAsLongAsSignalsInterruptIt) {
    Calls calls{{{-1, EINTR}, {-1, EINTR}, {3, EINTR}}};
    EXPECT_EQ(uninterrupted([&] { return calls(); }), 3);
    EXPECT_EQ(calls.made, 3U);
}

TEST(Uninterrupted, AnotherFailureIsTheResult) {
    Calls calls{{{-1, EINTR}, {-1, EIO}}};
    EXPECT_EQ(uninterrupted([&] { return calls(); }), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(calls.made, 2U);
}

} // namespace
} // namespace xpon::core
