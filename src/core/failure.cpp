#include "core/failure.hpp"

#include <cerrno>

namespace xpon::core {

namespace {

/// Writes a line at the failure level. The text is created only if the level is enabled.
template <class MakeText>
void log_line(ILogger& logger, std::source_location where, MakeText const& make_text) {
    if (logger.is_enabled(log_failure)) {
        logger.log(log_failure, make_text(), where);
    }
}

} // namespace

ErrorPayload pass_on(ILogger& logger, ErrorPayload error, std::source_location where) {
    if (error.info) {
        logger.log(log_failure, error.to_string(), error.info->location);
        error.info.reset();
    }
    log_line(logger, where, [&] { return error.to_string(); });
    return error;
}

ErrorPayload c_api_failure(ILogger& logger, int ret, std::source_location where) {
    int const reason = errno;
    log_line(logger, where, [&] {
        return reason != 0 ? fmt::format("C API function returned {:d}, errno={:d}", ret, reason)
                           : fmt::format("C API function returned {:d}", ret);
    });
    errno = 0;
    return ErrorPayload{Error::ErrorCApi, where};
}

ErrorPayload exception_failure(ILogger& logger, std::source_location where) {
    try {
        throw;
    } catch (std::exception const& exception) {
        log_line(logger, where,
                 [&] { return fmt::format("An std::exception was thrown: {} ", exception.what()); });
    } catch (...) {
        log_line(logger, where, [] { return "An exception was thrown. "; });
    }
    return ErrorPayload{Error::Exception, where};
}

} // namespace xpon::core
