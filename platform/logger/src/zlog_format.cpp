#include "zlog_format.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <ctime>

#include "core/failure.hpp"

namespace xpon::logger {

namespace {

using core::Error;
using core::fail;
using core::Result;
using spdlog::details::log_msg;
/// For a text that is made while a line is formatted.
using Scratch = std::array<char, 256>;

constexpr std::string_view conversions = "dVcmfULn%";

std::string_view view(spdlog::string_view_t text) {
    return {text.data(), text.size()};
}

std::string_view date(log_msg const& message, std::string const& format, Scratch& scratch) {
    auto const seconds = std::chrono::system_clock::to_time_t(message.time);
    std::tm local{};
    localtime_r(&seconds, &local);
    return {scratch.data(), std::strftime(scratch.data(), scratch.size(), format.c_str(), &local)};
}

std::string_view without_folder(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

/// The bare name: compilers hand out the whole signature, "int ns::Class<T>::name(int) const".
std::string_view bare_name(std::string_view signature) {
    int depth = 0;
    for (std::size_t place = 0; place < signature.size(); ++place) {
        auto const rest = signature.substr(place);
        depth += rest.starts_with('<') ? 1 : 0;
        depth -= rest.starts_with('>') ? 1 : 0;
        if (depth == 0 && rest.starts_with('(') && !rest.starts_with("(anonymous ")) {
            auto const name = signature.substr(0, place);
            return name.substr(name.find_last_of(" :*&") + 1);
        }
    }
    return signature;
}

/// The text of a part, before its width and precision. It may be in `scratch`.
std::string_view text_in(ZlogPart const& part, log_msg const& message, Scratch& scratch) {
    switch (part.conversion) {
    case 'd':
        return date(message, part.argument, scratch);
    case 'V':
        return zlog_level_names.at(static_cast<std::size_t>(message.level));
    case 'c':
        return view(message.logger_name);
    case 'm':
        return view(message.payload);
    case 'f':
        return without_folder(message.source.filename);
    case 'U':
        return bare_name(message.source.funcname);
    case 'L':
        return {scratch.begin(), std::to_chars(scratch.begin(), scratch.end(), message.source.line).ptr};
    case 'n':
        return "\n";
    case '%':
        return "%";
    default:
        return part.argument;
    }
}

bool take(std::string_view& rest, char character) {
    if (!rest.starts_with(character)) {
        return false;
    }
    rest.remove_prefix(1);
    return true;
}

/// At most three digits: a fourth one then is an unknown conversion.
std::size_t take_number(std::string_view& rest) {
    auto const digits = rest.substr(0, std::min(rest.find_first_not_of("0123456789"), std::size_t{3}));
    std::size_t number = 0;
    std::from_chars(digits.begin(), digits.end(), number);
    rest.remove_prefix(digits.size());
    return number;
}

/// The text in the parentheses of a date, "(%d %b %T)".
Result<std::string> take_date_text(std::string_view& rest) {
    auto const end = rest.find(')');
    if (!rest.starts_with('(') || end == std::string_view::npos) {
        return fail(Error::InvalidInputArg, "%d without a date text in parentheses");
    }
    std::string text{rest.substr(1, end - 1)};
    rest.remove_prefix(end + 1);
    Scratch scratch{};
    if (date(log_msg{}, text, scratch).empty()) {
        return fail(Error::InvalidInputArg, "the date text \"{}\" gives nothing or too much", text);
    }
    return text;
}

Result<ZlogPart> take_conversion(std::string_view& rest) {
    auto const whole = rest;
    ZlogPart part;
    take(rest, '%');
    part.left = take(rest, '-');
    part.width = take_number(rest);
    if (take(rest, '.')) {
        part.precision = take_number(rest);
    }
    if (rest.empty() || conversions.find(rest.front()) == std::string_view::npos) {
        return fail(Error::InvalidInputArg, "unknown conversion \"{}\"",
                    whole.substr(0, whole.size() - rest.size() + 1));
    }
    part.conversion = rest.front();
    rest.remove_prefix(1);
    if (part.conversion == 'd') {
        OUTCOME_TRY(text, take_date_text(rest));
        part.argument = std::move(text);
    }
    return part;
}

ZlogPart take_constant(std::string_view& rest) {
    auto const text = rest.substr(0, rest.find('%'));
    rest.remove_prefix(text.size());
    return {.argument = std::string{text}};
}

} // namespace

Result<std::shared_ptr<ZlogFormat const>> ZlogFormat::compile(std::string_view text) {
    auto format = std::make_shared<ZlogFormat>();
    while (!text.empty()) {
        if (text.starts_with('%')) {
            OUTCOME_TRY(part, take_conversion(text));
            format->parts.push_back(std::move(part));
        } else {
            format->parts.push_back(take_constant(text));
        }
    }
    return format;
}

std::shared_ptr<ZlogFormat const> ZlogFormat::built_in() {
    static auto const format = compile("%d(%d %b %T) %-6V %-14.14c - %m [%f:%U:%L]%n").value();
    return format;
}

void ZlogFormat::format(log_msg const& message, spdlog::memory_buf_t& line) {
    Scratch scratch{};
    for (auto const& part : parts) {
        auto const text = text_in(part, message, scratch).substr(0, part.precision);
        std::string const padding(part.width - std::min(part.width, text.size()), ' ');
        line.append(part.left ? text : std::string_view{padding});
        line.append(part.left ? std::string_view{padding} : text);
    }
}

std::unique_ptr<spdlog::formatter> ZlogFormat::clone() const {
    return std::make_unique<ZlogFormat>(*this);
}

} // namespace xpon::logger
