#pragma once

#include <gmock/gmock.h>

#include "core/result.hpp"

namespace xpon::test {

/// Matches a successful result; prints the error of a failed one.
MATCHER(IsOk, "is a success") {
    if (!arg.has_value()) {
        *result_listener << arg.error().to_string();
    }
    return arg.has_value();
}

/// Matches a successful result whose value matches.
MATCHER_P(IsOkAnd, value_matcher, "is a success with a value that matches") {
    if (!arg.has_value()) {
        *result_listener << arg.error().to_string();
        return false;
    }
    return testing::ExplainMatchResult(value_matcher, arg.value(), result_listener);
}

/// Matches a failed result with this code and a message that matches ("" where there is none).
MATCHER_P2(IsError, code, message_matcher, "is an error with a code and message that match") {
    if (arg.has_value()) {
        *result_listener << "which is a success";
        return false;
    }
    auto const& error = arg.error();
    *result_listener << error.to_string();
    return error.error == code &&
           testing::ExplainMatchResult(message_matcher, error.message(), result_listener);
}

} // namespace xpon::test
