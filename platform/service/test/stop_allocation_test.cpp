// A program of its own, because it replaces the allocation functions.

#include <cstdlib>
#include <new>

#include <gtest/gtest.h>

#include "fakes.hpp"
#include "kit/fake_logger.hpp"
#include "xpon/service/service_launcher.hpp"

namespace {

thread_local int allocations = 0;

void* counted(std::size_t size) noexcept {
    ++allocations;
    return std::malloc(size);
}

} // namespace

// Not inlined: next to an inlined `free` the compiler takes them for a mismatched pair.
[[gnu::noinline]] void* operator new(std::size_t size) {
    if (void* const memory = counted(size)) {
        return memory;
    }
    throw std::bad_alloc{};
}

[[gnu::noinline]] void* operator new(std::size_t size, std::nothrow_t const& /*tag*/) noexcept {
    return counted(size);
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::nothrow_t const& /*tag*/) noexcept {
    std::free(memory);
}

namespace xpon::service {
namespace {

TEST(StopAllocation, StoppingAllocatesNothing) {
    Journal journal;
    ServiceLauncher launcher{std::make_unique<FakeService>(journal), std::make_shared<test::FakeLogger>(),
                             std::make_shared<FakeBus>(), false};
    int const before = allocations;
    bool const stopped = launcher.stop().has_value();
    int const after = allocations;
    EXPECT_TRUE(stopped);
    EXPECT_EQ(after, before);
    EXPECT_GT(before, 0);
}

} // namespace
} // namespace xpon::service
