#include "core/error.hpp"

#include <sstream>
#include <utility>

#include <gtest/gtest.h>

#include "core/result.hpp"

namespace xpon::core {
namespace {

TEST(Error, EveryCodeHasItsName) {
    constexpr std::pair<std::uint32_t, char const*> cases[] = {
        {0, "No error"},       {1, "InvalidInputArg"}, {2, "CommonError"},
        {3, "Exception"},      {4, "ErrorCApi"},       {5, "NotImplemented"},
        {6, "Already"},        {7, "InvalidState"},    {8, "Empty"},
        {9, "Overflow"},       {10, "NoAccess"},       {11, "OutOfRange"},
        {12, "Unknown error"}, {13, "Unknown error"},  {0xFFFFFFFF, "Unknown error"},
    };
    for (auto const& [code, name] : cases) {
        EXPECT_EQ(to_string(static_cast<Error>(code)), name) << code;
        std::ostringstream out;
        out << static_cast<Error>(code);
        EXPECT_EQ(out.str(), name) << code;
    }
}

TEST(ErrorPayload, ShortFormWithoutMessageIsTheCodeAlone) {
    EXPECT_EQ(ErrorPayload{Error::Exception}.to_string(), "Error: Exception");
    EXPECT_EQ((ErrorPayload{Error::Exception, ""}.to_string()), "Error: Exception");
}

TEST(ErrorPayload, ShortFormWithMessageEndsInAFullStop) {
    EXPECT_EQ((ErrorPayload{Error::CommonError, "x"}.to_string()), "Error: CommonError. Message: x.");
    EXPECT_EQ((ErrorPayload{Error::ErrorCApi, "abc"}.to_string()), "Error: ErrorCApi. Message: abc.");
}

TEST(ErrorPayload, ShortFormOfAReducedErrorIsTheCodeAlone) {
    ErrorPayload error{Error::CommonError, "x"};
    error.info.reset();
    EXPECT_EQ(error.to_string(), "Error: CommonError");
}

TEST(ErrorPayload, ConstructorsCaptureTheLocationOfTheCaller) {
    auto const line = std::source_location::current().line() + 1;
    ErrorPayload const plain{Error::Empty};
    ErrorPayload const with_text{Error::Empty, "text"};
    ASSERT_TRUE(plain.info && with_text.info);
    EXPECT_EQ(plain.info->location.line(), line);
    EXPECT_EQ(with_text.info->location.line(), line + 1);
    EXPECT_STREQ(plain.info->location.file_name(), __FILE__);
}

TEST(ErrorPayload, MessageIsAViewUntilItIsOwned) {
    EXPECT_TRUE(std::holds_alternative<std::string_view>(ErrorPayload{Error::Empty}.info->message));
    EXPECT_TRUE(std::holds_alternative<std::string>(ErrorPayload(Error::Empty, "text").info->message));
}

TEST(ErrorPayload, LongFormNamesCodeMessageFileLineAndFunction) {
    ErrorPayload const error{Error::CommonError, "text"};
    auto const& location = error.info->location;
    std::ostringstream out;
    out << error;
    EXPECT_EQ(out.str(), "[CommonError]: text (" + std::string{location.file_name()} + ":" +
                             std::to_string(location.line()) + "): " + location.function_name());
}

TEST(ErrorPayload, LongFormOfALocationThatWasNotCapturedIsEmpty) {
    ErrorPayload const error{Error::CommonError, "text", std::source_location{}};
    std::ostringstream out;
    out << error;
    EXPECT_EQ(out.str(), "[CommonError]: text (:0): ");
}

TEST(ErrorPayloadDeathTest, LongFormWithoutInfoStopsTheProcess) {
    ErrorPayload error{Error::CommonError};
    error.info.reset();
    std::ostringstream out;
    EXPECT_DEATH(out << error, "");
}

TEST(ResultDeathTest, ReadingTheWrongSideStopsTheProcess) {
    Result<int> const failed = ErrorPayload{Error::Empty};
    Result<int> const good = 5;
    EXPECT_DEATH(std::ignore = failed.value(), "value\\(\\) of a result that holds an error");
    EXPECT_DEATH(std::ignore = good.error(), "error\\(\\) of a result that holds a value");
}

Result<int> half(int number) {
    if (number % 2 != 0) {
        return ErrorPayload{Error::InvalidInputArg, "odd"};
    }
    return number / 2;
}

Result<int> quarter(int number) {
    OUTCOME_TRY(first, half(number));
    OUTCOME_TRY(half(first));
    return half(first);
}

TEST(OutcomeTry, ReturnsTheErrorToTheCallerOrGoesOn) {
    EXPECT_EQ(quarter(8).value(), 2);
    EXPECT_EQ(quarter(6).error().error, Error::InvalidInputArg);
    EXPECT_EQ(quarter(7).error().info->text(), "odd");
}

} // namespace
} // namespace xpon::core
