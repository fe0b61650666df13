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

/// Logs a failed result and returns the error reduced to its code. An error that still has its `info` writes
/// two lines: its own message at its own location (even if the level is disabled), then the code's name at
/// the caller's location. A reduced error writes the second line only.
ErrorPayload pass_on(ILogger& logger, ErrorPayload error,
                     std::source_location where = std::source_location::current());

/// The same for a result. A success is returned unchanged.
template <class T>
Result<T> pass_on(ILogger& logger, Result<T> result,
                  std::source_location where = std::source_location::current()) {
    if (result.has_value()) {
        return result;
    }
    return pass_on(logger, std::move(result).error(), where);
}

/// Converts the non-zero status `ret` of a C function: logs it, with `errno` if that is set, and returns
/// `ErrorCApi` without a message. Sets `errno` to 0.
ErrorPayload c_api_failure(ILogger& logger, int ret,
                           std::source_location where = std::source_location::current());

/// Converts the status of a C function to a result: 0 is success, anything else is `c_api_failure`.
inline Result<void> c_api_result(ILogger& logger, int ret,
                                 std::source_location where = std::source_location::current()) {
    if (ret != 0) {
        return c_api_failure(logger, ret, where);
    }
    return success();
}

/// Logs the current exception and returns `Exception` without a message. Call it in a catch block only.
ErrorPayload exception_failure(ILogger& logger, std::source_location where);

/// Runs a step that returns a `Result`. An exception is logged and becomes the error `Exception`.
template <class Step>
auto guarded(ILogger& logger, Step&& step, std::source_location where = std::source_location::current())
    -> std::invoke_result_t<Step> {
    try {
        return std::forward<Step>(step)();
    } catch (...) {
        return exception_failure(logger, where);
    }
}

/// The same as `guarded`, without logging.
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
