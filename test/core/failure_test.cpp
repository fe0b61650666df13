#include "core/failure.hpp"

#include <cerrno>
#include <stdexcept>

#include <gtest/gtest.h>

#include "kit/fake_logger.hpp"
#include "kit/matchers.hpp"

namespace xpon::core {
namespace {

using test::FakeLogger;
using test::IsError;
using test::IsOk;
using testing::ElementsAre;
using testing::IsEmpty;

Result<void> throw_standard() {
    throw std::runtime_error("broken");
}

Result<void> throw_other() {
    throw 7;
}

TEST(Fail, FormatsTheMessageAndTakesTheLocationOfTheCaller) {
    auto const line = std::source_location::current().line() + 1;
    auto const error = fail(Error::OutOfRange, "{} of {}", 3, "four");
    EXPECT_EQ(error.to_string(), "Error: OutOfRange. Message: 3 of four.");
    EXPECT_EQ(error.info->location.line(), line);
    EXPECT_STREQ(error.info->location.file_name(), __FILE__);
}

TEST(Log, AsksBeforeItWrites) {
    FakeLogger logger{LogLevel::Error};
    log(logger, LogLevel::Debug, "unseen {}", 1);
    log(logger, LogLevel::Error, "seen {}", 2);
    EXPECT_THAT(logger.texts(), ElementsAre("seen 2"));
    EXPECT_STREQ(logger.lines().at(0).where.file_name(), __FILE__);
}

TEST(PassOn, AnErrorWithAMessageLeavesTwoLinesTheDetailedOneFirst) {
    FakeLogger logger;
    auto error = fail(Error::CommonError, "text");
    auto const made_at = error.info->location.line();
    auto const line = std::source_location::current().line() + 1;
    auto const passed = pass_on(logger, std::move(error));
    EXPECT_FALSE(passed.info);
    EXPECT_EQ(passed.error, Error::CommonError);
    EXPECT_THAT(logger.texts(), ElementsAre("Error: CommonError. Message: text.", "Error: CommonError"));
    EXPECT_EQ(logger.lines().at(0).where.line(), made_at);
    EXPECT_EQ(logger.lines().at(1).where.line(), line);
    EXPECT_EQ(logger.lines().at(0).level, LogLevel::Error);
    EXPECT_EQ(logger.lines().at(1).level, LogLevel::Error);
}

TEST(PassOn, AnErrorWithoutMessageThatStillHasItsPlaceLeavesTwoLines) {
    FakeLogger logger;
    pass_on(logger, ErrorPayload{Error::ErrorCApi});
    EXPECT_THAT(logger.texts(), ElementsAre("Error: ErrorCApi", "Error: ErrorCApi"));
}

TEST(PassOn, AReducedErrorLeavesOneLine) {
    FakeLogger logger;
    auto const reduced = pass_on(logger, ErrorPayload{Error::Exception});
    pass_on(logger, reduced);
    EXPECT_EQ(logger.lines().size(), 3U);
}

TEST(PassOn, TheDetailedLineDoesNotAskWhetherTheLevelIsEnabled) {
    FakeLogger logger{LogLevel::Fatal};
    pass_on(logger, fail(Error::CommonError, "text"));
    EXPECT_THAT(logger.texts(), ElementsAre("Error: CommonError. Message: text."));
}

TEST(PassOn, ASuccessfulResultGoesThroughUntouched) {
    FakeLogger logger;
    EXPECT_EQ(pass_on(logger, Result<int>{5}).value(), 5);
    EXPECT_THAT(logger.texts(), IsEmpty());
}

TEST(PassOn, AFailedResultComesBackReduced) {
    FakeLogger logger;
    auto const result = pass_on(logger, Result<int>{fail(Error::Empty, "none")});
    EXPECT_THAT(result, IsError(Error::Empty, ""));
    EXPECT_FALSE(result.error().info);
}

TEST(CApiFailure, NamesErrnoWhereItIsSetAndClearsIt) {
    FakeLogger logger;
    errno = EINVAL;
    auto const error = c_api_failure(logger, -3);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(error.to_string(), "Error: ErrorCApi");
    EXPECT_THAT(logger.texts(), ElementsAre("C API function returned -3, errno=22"));
    EXPECT_STREQ(logger.lines().at(0).where.file_name(), __FILE__);
}

TEST(CApiFailure, WithoutErrnoNamesTheStatusAlone) {
    FakeLogger logger;
    errno = 0;
    c_api_failure(logger, 7);
    EXPECT_THAT(logger.texts(), ElementsAre("C API function returned 7"));
}

TEST(CApiFailure, ClearsErrnoEvenIfNothingIsLogged) {
    FakeLogger logger{LogLevel::Fatal};
    errno = EIO;
    c_api_failure(logger, 1);
    EXPECT_EQ(errno, 0);
    EXPECT_THAT(logger.texts(), IsEmpty());
}

TEST(Guarded, AStandardExceptionIsLoggedWithATrailingBlankAndBecomesException) {
    FakeLogger logger;
    EXPECT_THAT(guarded(logger, throw_standard), IsError(Error::Exception, ""));
    EXPECT_THAT(logger.texts(), ElementsAre("An std::exception was thrown: broken "));
}

TEST(Guarded, AnyOtherExceptionIsLoggedWithATrailingBlankAndBecomesException) {
    FakeLogger logger;
    EXPECT_THAT(guarded(logger, throw_other), IsError(Error::Exception, ""));
    EXPECT_THAT(logger.texts(), ElementsAre("An exception was thrown. "));
}

TEST(Guarded, LogsNothingWhenTheLevelIsOff) {
    FakeLogger logger{LogLevel::Fatal};
    EXPECT_THAT(guarded(logger, throw_standard), IsError(Error::Exception, ""));
    EXPECT_THAT(guarded(logger, throw_other), IsError(Error::Exception, ""));
    EXPECT_THAT(logger.texts(), IsEmpty());
}

TEST(ExceptionGuards, ATextIsMadeOnlyForALevelThatIsEnabled) {
    struct Asked : std::exception {
        explicit Asked(int& to_count)
          : count{to_count} {}
        char const* what() const noexcept override {
            ++count;
            return "broken";
        }
        int& count;
    };
    int asked = 0;
    FakeLogger off{LogLevel::Fatal};
    EXPECT_THAT(guarded(off, [&]() -> Result<void> { throw Asked{asked}; }), IsError(Error::Exception, ""));
    EXPECT_EQ(asked, 0);
    FakeLogger on;
    EXPECT_THAT(guarded(on, [&]() -> Result<void> { throw Asked{asked}; }), IsError(Error::Exception, ""));
    EXPECT_EQ(asked, 1);
}

TEST(Guarded, ResultsOfTheStepComeBackUnchanged) {
    FakeLogger logger;
    EXPECT_THAT(guarded(logger, [] { return Result<void>{success()}; }), IsOk());
    EXPECT_THAT(guarded(logger, []() -> Result<int> { return fail(Error::Already, "twice"); }),
                IsError(Error::Already, "twice"));
    EXPECT_THAT(logger.texts(), IsEmpty());
}

TEST(Caught, TurnsExceptionsIntoErrorsWithoutLogging) {
    EXPECT_THAT(caught(throw_standard), IsError(Error::Exception, ""));
    EXPECT_THAT(caught(throw_other), IsError(Error::Exception, ""));
    EXPECT_THAT(caught([]() -> Result<int> { return 3; }), IsOk());
}

TEST(ExceptionGuards, ErrorsCarryTheLocationOfTheCaller) {
    FakeLogger logger;
    auto const line = std::source_location::current().line() + 1;
    auto const error = guarded(logger, throw_standard).error();
    EXPECT_EQ(error.info->location.line(), line);
    EXPECT_EQ(logger.lines().at(0).where.line(), line);
}

TEST(LoggerDeathTest, AnEmptyLoggerStopsTheProcess) {
    std::shared_ptr<ILogger> const none;
    EXPECT_DEATH(log(*none, log_routine, "text"), "");
}

} // namespace
} // namespace xpon::core
