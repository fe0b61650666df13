#include "trials/duration.hpp"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "core/failure.hpp"
#include "number_in.hpp"
#include "xpon/cfgdb/printable.hpp"

namespace xpon::logctl {

namespace {

struct Unit {
    char letter;
    std::string_view name;
    std::int64_t seconds;
};

constexpr Unit units[] = {{'d', "d", 86400}, {'h', "h", 3600}, {'m', "min", 60}, {'s', "s", 1}};

} // namespace

core::Result<std::int64_t> seconds_in(std::string_view argument, std::string_view text,
                                      std::int64_t longest) {
    auto const unit = std::ranges::find(units, text.empty() ? '\0' : text.back(), &Unit::letter);
    if (unit != std::end(units)) {
        auto const number = number_in<double>(text.substr(0, text.size() - 1));
        auto const seconds = number.value_or(0) * static_cast<double>(unit->seconds);
        if (seconds > 0 && seconds <= static_cast<double>(longest)) {
            return static_cast<std::int64_t>(std::ceil(seconds));
        }
    }
    return core::fail(core::Error::InvalidInputArg,
                      "{}: {} is not allowed; it must be a time such as 90s, 30m, 2h or 7d, up to {}d",
                      argument, cfgdb::printable(text), longest / units->seconds);
}

std::string duration_text(std::int64_t seconds) {
    auto const* unit = std::ranges::find_if(units, [=](Unit const& one) { return seconds >= one.seconds; });
    if (unit == std::end(units)) {
        return "0 s";
    }
    auto text = fmt::format("{} {}", seconds / unit->seconds, unit->name);
    if (auto const* const next = unit + 1; next != std::end(units)) {
        text += fmt::format(" {} {}", seconds % unit->seconds / next->seconds, next->name);
    }
    return text;
}

} // namespace xpon::logctl
