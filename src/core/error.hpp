#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <source_location>
#include <string>
#include <string_view>
#include <variant>

namespace xpon::core {

/// What kind of failure happened. The numbers are part of the interface.
enum class Error : std::uint32_t {
    NoError = 0,
    InvalidInputArg = 1,
    CommonError = 2,
    Exception = 3,
    ErrorCApi = 4,
    NotImplemented = 5,
    Already = 6,
    InvalidState = 7,
    Empty = 8,
    Overflow = 9,
    NoAccess = 10,
    OutOfRange = 11,
};

/// The enumerator's name, "No error" for `NoError`, "Unknown error" for a number outside the enumeration.
std::string_view to_string(Error error);
std::ostream& operator<<(std::ostream& out, Error error);

/// The part of an error that is dropped once it has been logged.
struct ErrorInfo {
    /// A view of constant text or an owned string; an empty view means "no message".
    std::variant<std::string_view, std::string> message;
    std::source_location location;

    std::string_view text() const;
};

/// The error side of every `Result`: a code and, until the error has been logged, a message and a location.
struct ErrorPayload {
    Error error = Error::NoError;
    std::optional<ErrorInfo> info;

    /// No error and no `info`. It exists because the result type needs a default constructor.
    ErrorPayload() = default;

    // Explicit: an implicit conversion would record a location inside the header of the result library.
    explicit ErrorPayload(Error code, std::source_location where = std::source_location::current());
    explicit ErrorPayload(Error code, std::string message,
                          std::source_location where = std::source_location::current());

    /// The message; empty if there is none.
    std::string message() const;

    /// Short form: "Error: CommonError. Message: text." or, without a message, "Error: CommonError".
    std::string to_string() const;
};

/// Long form: "[CommonError]: text (file:line): function". Aborts on a payload without `info`.
std::ostream& operator<<(std::ostream& out, ErrorPayload const& payload);

} // namespace xpon::core
