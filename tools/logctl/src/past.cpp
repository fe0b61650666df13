#include "past.hpp"

#include <fmt/format.h>

#include "core/failure.hpp"

namespace xpon::logctl {

core::Result<std::map<std::string, Since>> changed_since(std::int64_t number,
                                                         std::vector<cfgdb::PastTransaction> const& history) {
    auto const newest = history.empty() ? 0 : history.back().number;
    auto const oldest = history.empty() ? 0 : history.front().number - 1;
    if (number < oldest || number > newest) {
        return core::fail(core::Error::InvalidInputArg, "{}: no such transaction; it must be {}", number,
                          oldest == newest ? fmt::format("{}", newest)
                                           : fmt::format("{} to {}", oldest, newest));
    }
    std::map<std::string, Since> settings;
    for (auto const& transaction : history) {
        if (transaction.number > number) {
            for (auto const& [path, old_value, new_value] : transaction.changes) {
                settings.try_emplace(path, Since{old_value, {}}).first->second.now = new_value;
            }
        }
    }
    return settings;
}

} // namespace xpon::logctl
