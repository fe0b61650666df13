#pragma once

#include <exception>
#include <source_location>
#include <type_traits>
#include <utility>

#include "core/i_logger.hpp"
#include "core/log.hpp"
#include "core/result.hpp"

namespace xpon::core {

/// An error with a formatted message and the caller's location.
template <class... Args>
ErrorPayload fail(Error error, LocatedFormat<std::type_identity_t<Args>...> format, Args&&... args) {
    return ErrorPayload{error, fmt::format(format.text, std::forward<Args>(args)...), format.location};
}

/// Logs a failed result before it is passed on, and returns what is passed on: the error reduced to its code.
/// An error that still has its `info` leaves two lines: its own text at its own place (without asking whether
/// the level is enabled), then the code's name at the caller's place. A reduced one leaves the second only.
ErrorPayload pass_on(ILogger& logger, ErrorPayload error,
                     std::source_location where = std::source_location::current());

/// The same for a result; a success goes through untouched.
template <class T>
Result<T> pass_on(ILogger& logger, Result<T> result,
                  std::source_location where = std::source_location::current()) {
    if (result.has_value()) {
        return result;
    }
    return pass_on(logger, std::move(result).error(), where);
}

/// The result of a plain library function that returned the non-zero status `ret`: logs the status, with
/// `errno` where that is set, and returns `ErrorCApi` without a message. `errno` is 0 afterwards.
ErrorPayload c_api_failure(ILogger& logger, int ret,
                           std::source_location where = std::source_location::current());

/// The status of a plain library function as a result: 0 is success, anything else `c_api_failure`.
inline Result<void> c_api_result(ILogger& logger, int ret,
                                 std::source_location where = std::source_location::current()) {
    if (ret != 0) {
        return c_api_failure(logger, ret, where);
    }
    return success();
}

/// Logs the exception being handled and returns `Exception` without a message. Only inside a catch block.
ErrorPayload exception_failure(ILogger& logger, std::source_location where);

/// Runs a step that returns a `Result`; an exception that escapes it is logged and becomes `Exception`.
template <class Step>
auto guarded(ILogger& logger, Step&& step, std::source_location where = std::source_location::current())
    -> std::invoke_result_t<Step> {
    try {
        return std::forward<Step>(step)();
    } catch (...) {
        return exception_failure(logger, where);
    }
}

/// As `guarded`, without a word in the log.
template <class Step>
auto caught(Step&& step, std::source_location where = std::source_location::current())
    -> std::invoke_result_t<Step> {
    try {
        return std::forward<Step>(step)();
    } catch (...) {
        return ErrorPayload{Error::Exception, where};
    }
}

} // namespace xpon::core
