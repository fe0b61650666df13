#include "core/type_name.hpp"

#include <gtest/gtest.h>

namespace xpon::core {

struct Inner {};

namespace {

TEST(TypeName, ReadsAsItIsWritten) {
    EXPECT_EQ(type_name<int>(), "int");
    EXPECT_EQ(type_name<Inner>(), "xpon::core::Inner");
}

} // namespace
} // namespace xpon::core
