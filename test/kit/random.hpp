#pragma once

#include <cstdlib>
#include <random>

#include <fmt/format.h>

#include "kit/sanitized.hpp"

namespace xpon::test {

inline int number_from_environment(char const* name, int otherwise) {
    char const* const text = std::getenv(name);
    return text == nullptr ? otherwise : std::atoi(text);
}

/// The number of rounds of a test: XPON_ROUNDS, or else `normally`, of which a sanitizer, under which
/// everything takes several times as long, gets a quarter.
inline int rounds(int normally) {
    return number_from_environment("XPON_ROUNDS", sanitized ? normally / 4 : normally);
}

using Random = std::mt19937;

/// A source of random numbers that begins with XPON_SEED: 1 by default, so that every run has the same; 0
/// picks a new seed. Prints the seed.
inline Random seeded() {
    auto const chosen = number_from_environment("XPON_SEED", 1);
    auto const seed = chosen != 0 ? static_cast<unsigned>(chosen) : std::random_device{}() & 0x7FFFFFFF;
    fmt::print("XPON_SEED={}\n", seed);
    return Random{seed};
}

/// A number from 0 to `end` - 1.
inline std::size_t below(Random& random, std::size_t end) {
    return std::uniform_int_distribution<std::size_t>{0, end - 1}(random);
}

} // namespace xpon::test
