#include "xpon/cfgdb/history.hpp"

#include <memory>
#include <optional>
#include <set>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands/command.hpp"
#include "output.hpp"
#include "stored.hpp"
#include "table.hpp"

namespace xpon::logctl {

namespace {

using cfgdb::HistoryEntry;
using nlohmann::ordered_json;

struct Options {
    std::string path;
    std::optional<std::size_t> limit;
    bool json = false;
};

core::Result<std::vector<HistoryEntry>> select(Context const& context, Options const& options) {
    std::set<std::string> wanted;
    if (!options.path.empty()) {
        OUTCOME_TRY(found, expand_group(options.path));
        for (auto const* setting : found) {
            wanted.insert(setting->path);
        }
    }
    OUTCOME_TRY(entries, cfgdb::history(context.database));
    if (!wanted.empty()) {
        std::erase_if(entries, [&](auto const& entry) { return !wanted.contains(entry.path); });
    }
    if (options.limit && entries.size() > *options.limit) {
        entries.erase(entries.begin(), entries.end() - static_cast<std::ptrdiff_t>(*options.limit));
    }
    return entries;
}

std::string to_table(std::vector<HistoryEntry> const& entries) {
    auto const add_entries = [&](AddLine const& add) {
        add({"NUMBER", "TIME", "USER", "PATH", "CHANGE"});
        for (auto const& [number, time, author, path, old_value, new_value] : entries) {
            add({std::to_string(number), utc(time), author, path,
                 fmt::format("{} -> {}", old_value, new_value)});
        }
    };
    return aligned(add_entries, false);
}

std::string to_json(std::vector<HistoryEntry> const& entries) {
    auto all = ordered_json::array();
    for (auto const& [number, time, author, path, old_value, new_value] : entries) {
        all.push_back({{"number", number},
                       {"time", utc(time)},
                       {"author", author},
                       {"path", path},
                       {"old", old_value},
                       {"new", new_value}});
    }
    return all.dump(2) + "\n";
}

core::Result<int> history(Context const& context, Options const& options) {
    OUTCOME_TRY(entries, select(context, options));
    print(options.json ? to_json(entries) : to_table(entries));
    return 0;
}

} // namespace

Action history_command(Arguments& arguments) {
    auto const options = std::make_shared<Options>();
    arguments.add({"PATH", "Only the changes of these settings or this group"}, options->path);
    arguments.add({"--limit", "Only the newest so many lines", "N"}, options->limit);
    arguments.add({"--json", "Print an array of JSON objects"}, options->json);
    return [options](Context const& context) { return history(context, *options); };
}

} // namespace xpon::logctl
