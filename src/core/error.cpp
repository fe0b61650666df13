#include "core/error.hpp"

#include <array>
#include <ostream>

#include <fmt/format.h>

namespace xpon::core {

std::string_view to_string(Error error) {
    static constexpr std::array<std::string_view, 12> names{
        "No error", "InvalidInputArg", "CommonError", "Exception", "ErrorCApi", "NotImplemented",
        "Already",  "InvalidState",    "Empty",       "Overflow",  "NoAccess",  "OutOfRange",
    };
    auto const index = static_cast<std::size_t>(error);
    return index < names.size() ? names.at(index) : "Unknown error";
}

std::ostream& operator<<(std::ostream& out, Error error) {
    return out << to_string(error);
}

std::string_view ErrorInfo::text() const {
    return std::visit([](auto const& alternative) { return std::string_view{alternative}; }, message);
}

ErrorPayload::ErrorPayload(Error code, std::source_location where)
  : error{code}
  , info{ErrorInfo{std::string_view{}, where}} {}

ErrorPayload::ErrorPayload(Error code, std::string message, std::source_location where)
  : error{code}
  , info{ErrorInfo{std::move(message), where}} {}

std::string ErrorPayload::message() const {
    return std::string{info ? info->text() : ""};
}

std::string ErrorPayload::to_string() const {
    auto const text = message();
    return text.empty() ? fmt::format("Error: {}", core::to_string(error))
                        : fmt::format("Error: {}. Message: {}.", core::to_string(error), text);
}

std::ostream& operator<<(std::ostream& out, ErrorPayload const& payload) {
    auto const& info =
        *payload.info; // NOLINT(bugprone-unchecked-optional-access): the process aborts without it
    return out << fmt::format("[{}]: {} ({}:{}): {}", to_string(payload.error), info.text(),
                              info.location.file_name(), info.location.line(), info.location.function_name());
}

} // namespace xpon::core
