#include "xpon/cfgdb/history.hpp"

#include <algorithm>
#include <ctime>
#include <memory>
#include <optional>
#include <set>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands/command.hpp"
#include "core/failure.hpp"
#include "folded.hpp"
#include "output.hpp"
#include "stored.hpp"
#include "table.hpp"
#include "trials/duration.hpp"
#include "xpon/cfgdb/printable.hpp"
#include "xpon/cfgdb/trial.hpp"

namespace xpon::logctl {

namespace {

using cfgdb::PastTransaction;
using nlohmann::ordered_json;

struct Options {
    std::string path;
    std::optional<std::size_t> limit;
    std::optional<std::string> since;
    bool full = false;
    bool json = false;
};

/// A time ago, or a time of UTC; in seconds since the epoch.
core::Result<std::int64_t> time_in(std::string const& text) {
    constexpr std::int64_t ten_years = std::int64_t{10} * 366 * 24 * 60 * 60;
    if (auto const ago = seconds_in("--since", text, ten_years); ago.has_value()) {
        return std::time(nullptr) - ago.value();
    }
    for (auto const* const format : {"%Y-%m-%dT%H:%M:%SZ", "%Y-%m-%d"}) {
        std::tm time{};
        if (char const* const end = strptime(text.c_str(), format, &time); end != nullptr && *end == '\0') {
            return timegm(&time);
        }
    }
    return core::fail(
        core::Error::InvalidInputArg,
        "--since: {} is not allowed; it must be an age such as 30m, 2h or 7d, or a UTC time such as "
        "2024-05-31 or 2024-05-31T08:15:00Z",
        cfgdb::printable(text));
}

core::Result<std::vector<PastTransaction>> select(Context const& context, Options const& options) {
    std::int64_t since = 0;
    if (options.since) {
        OUTCOME_TRY(time, time_in(*options.since));
        since = time;
    }
    std::set<std::string> wanted;
    if (!options.path.empty()) {
        OUTCOME_TRY(found, expand_group(options.path));
        for (auto const* setting : found) {
            wanted.insert(setting->path);
        }
    }
    OUTCOME_TRY(transactions, cfgdb::history(context.database));
    if (!wanted.empty()) {
        for (auto& transaction : transactions) {
            std::erase_if(transaction.changes,
                          [&](auto const& change) { return !wanted.contains(change.path); });
        }
    }
    std::erase_if(transactions, [&](auto const& one) { return one.changes.empty() || one.time < since; });
    if (options.limit && transactions.size() > *options.limit) {
        transactions.erase(transactions.begin(),
                           transactions.end() - static_cast<std::ptrdiff_t>(*options.limit));
    }
    return transactions;
}

/// The seconds that are left of the trials that are pending, by number.
using TimeLeft = std::map<std::int64_t, std::int64_t>;

core::Result<TimeLeft> time_left(Context const& context) {
    OUTCOME_TRY(trials, cfgdb::pending_trials(context.database));
    TimeLeft left;
    for (auto const& trial : trials) {
        left[trial.number] = trial.terms.end.left();
    }
    return left;
}

struct Row {
    std::string number;
    std::string time;
    std::string user;
    std::string kind;
    std::string change;
};

/// What was changed, one text for each line.
std::vector<std::string> change_texts(PastTransaction const& transaction, bool full) {
    std::vector<Said> all;
    all.reserve(transaction.changes.size());
    for (auto const& [path, old_value, new_value] : transaction.changes) {
        all.push_back({path, change_text(old_value, new_value)});
    }
    std::vector<std::string> texts;
    for (auto const& [path, change] : full ? all : folded(all)) {
        texts.push_back(fmt::format("{}: {}", path, change));
    }
    if (!full) {
        constexpr std::size_t enough = 3;
        auto const more = texts.size() > enough ? texts.size() - enough : 0;
        texts.resize(texts.size() - more);
        texts = {fmt::format("{}", fmt::join(texts, "; "))};
        texts.front() += more > 0 ? fmt::format("; and {} more", more) : "";
    }
    if (!transaction.comment.empty()) {
        texts.front() += fmt::format(" ({})", transaction.comment);
    }
    return texts;
}

std::string to_table(std::vector<PastTransaction> const& transactions, TimeLeft const& left, bool full) {
    std::vector<Row> rows;
    for (auto const& one : transactions) {
        auto const pending = left.find(one.number);
        for (auto& text : change_texts(one, full)) {
            rows.push_back(
                {std::to_string(one.number), utc(one.time),
                 one.account.empty() ? one.author : fmt::format("{} ({})", one.author, one.account),
                 pending == left.end() ? one.kind
                                       : fmt::format("{}, {} left", one.kind, duration_text(pending->second)),
                 std::move(text)});
        }
    }
    return aligned(
        [&](AddLine const& add) {
            add({"NUMBER", "TIME", "USER", "HOW", "CHANGE"});
            for (auto const& [number, time, user, kind, change] : rows) {
                add({number, time, user, kind, change});
            }
        },
        screen(), LastColumn::WrappedUnderHeading);
}

std::string to_json(std::vector<PastTransaction> const& transactions, TimeLeft const& left) {
    auto all = ordered_json::array();
    for (auto const& one : transactions) {
        auto changes = ordered_json::array();
        for (auto const& [path, old_value, new_value] : one.changes) {
            changes.push_back({{"path", path}, {"old", old_value}, {"new", new_value}});
        }
        all.push_back({{"number", one.number},
                       {"time", utc(one.time)},
                       {"author", one.author},
                       {"account", one.account},
                       {"how", one.kind},
                       {"comment", one.comment},
                       {"changes", changes}});
        if (auto const pending = left.find(one.number); pending != left.end()) {
            all.back()["seconds_left"] = pending->second;
        }
    }
    return all.dump(2) + "\n";
}

core::Result<int> history(Context const& context, Options const& options) {
    OUTCOME_TRY(transactions, select(context, options));
    OUTCOME_TRY(left, time_left(context));
    print(options.json ? to_json(transactions, left) : to_table(transactions, left, options.full));
    return 0;
}

} // namespace

Action history_command(Arguments& arguments) {
    auto const options = std::make_shared<Options>();
    arguments.add({"PATH", "Only the changes of these settings or this group"}, options->path);
    arguments.add(
        {.name = "--limit", .help = "Only the newest N transactions", .type = "N", .range = {{0, 1e9}}},
        options->limit);
    arguments.add(
        {"--since", "Only what came after this time: 2h or 7d ago, or a UTC time such as 2024-05-31", "TIME"},
        options->since);
    arguments.add({"--full", "Print a line for each setting, not for each transaction"}, options->full);
    arguments.add({"--json", "Print an array of JSON objects"}, options->json);
    return [options](Context const& context) { return history(context, *options); };
}

} // namespace xpon::logctl
