#include "core/plain_text.hpp"

#include <gtest/gtest.h>

namespace xpon::core {
namespace {

TEST(PlainText, LosesItsControlCharactersAndNothingElse) {
    EXPECT_EQ(without_control_characters("a\nMAINPID=2\r\n\x1B[2J\x7F\tb"), "aMAINPID=2[2Jb");
    EXPECT_EQ(without_control_characters(std::string_view{"a\0b", 3}), "ab");
    EXPECT_EQ(without_control_characters("Grüße {} %s \"\\"), "Grüße {} %s \"\\");
    EXPECT_EQ(without_control_characters({}), "");
}

} // namespace
} // namespace xpon::core
