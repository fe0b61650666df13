#include "xpon/cfgdb/transaction.hpp"

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <ranges>
#include <set>

#include <pwd.h>
#include <unistd.h>

#include "core/failure.hpp"
#include "record.hpp"
#include "session.hpp"
#include "xpon/cfgdb/history.hpp"
#include "xpon/cfgdb/usable.hpp"

namespace xpon::cfgdb {

namespace {

using core::Error;
using core::fail;

core::Result<std::vector<Setting const*>> settable(std::string_view pattern) {
    OUTCOME_TRY(found, expand(pattern));
    std::erase_if(found, [](auto const* setting) { return setting->built_in(); });
    if (found.empty()) {
        return fail(Error::InvalidInputArg, "{}: built in and cannot be set", pattern);
    }
    return std::move(found);
}

/// The stored rows of this program's settings; a default has no row.
using StoredRows = std::map<Setting const*, StoredRow>;

core::Result<StoredRows> stored_rows(Connection const& connection) {
    StoredRows rows;
    OUTCOME_TRY(each_row(connection, [&rows](auto /*path*/, auto const* setting, StoredRow row) {
        if (setting != nullptr) {
            rows.emplace(setting, std::move(row));
        }
    }));
    return rows;
}

using Wanted = std::map<Setting const*, Value>;

/// A setting's value now, as an operator writes it.
std::string current_text(Setting const& setting, StoredRows const& stored) {
    auto const row = stored.find(&setting);
    return row == stored.end() ? to_text(setting.kind, setting.default_value) : row->second.text;
}

std::vector<Change> differences(Wanted const& wanted, StoredRows const& stored,
                                std::set<std::string> const& on_trial) {
    std::vector<Change> changes;
    for (auto const& [setting, value] : wanted) {
        auto const row = stored.find(setting);
        bool const same = row == stored.end() ? value == setting->default_value
                                              : value != setting->default_value && row->second.value == value;
        if (!same || on_trial.contains(setting->path)) {
            changes.push_back({setting, current_text(*setting, stored), to_text(setting->kind, value)});
        }
    }
    return changes;
}

/// Fails if a change concerns the receivers and two of them would be the same.
core::Result<void> check_receivers(std::vector<Change> const& changes, Wanted const& wanted,
                                   StoredRows const& stored) {
    auto theirs = changes | std::views::filter(
                                [](auto const& change) { return change.setting->field_id == remote_field; });
    if (theirs.empty()) {
        return core::success();
    }
    auto const& remote = syslog_record(remote_field);
    auto filled = remote.defaults;
    for (auto const& setting : remote.settings) {
        auto const row = stored.find(&setting);
        if (row == stored.end()) {
            continue;
        }
        if (auto const& value = row->second.value) {
            put(setting, *value, filled);
        }
    }
    for (auto const& change : theirs) {
        put(*change.setting, wanted.at(change.setting), filled);
    }
    if (auto const wrong = contradiction(remote, filled)) {
        return fail(Error::InvalidInputArg, "{}", *wrong);
    }
    return core::success();
}

core::Result<std::set<std::string>> paths_on_trial(Connection const& connection) {
    std::set<std::string> paths;
    OUTCOME_TRY(there, has_table(connection, "on_trial"));
    if (there) {
        OUTCOME_TRY(statement, connection.prepare("SELECT path FROM on_trial"));
        auto rows = statement.run();
        while (rows.next()) {
            paths.emplace(rows.text(0));
        }
        OUTCOME_TRY(connection.check_end(rows));
    }
    return paths;
}

/// The settings that get an earlier value, and the value that some of them must still have for it.
using Earlier = std::map<Setting const*, std::optional<std::string>>;

core::Result<std::vector<Change>> planned(Wanted const& wanted, Earlier const& earlier,
                                          Connection const& connection) {
    OUTCOME_TRY(stored, stored_rows(connection));
    OUTCOME_TRY(on_trial, paths_on_trial(connection));
    auto changes = differences(wanted, stored, on_trial);
    std::erase_if(changes, [&earlier](auto const& change) {
        auto const found = earlier.find(change.setting);
        return found != earlier.end() && found->second && *found->second != change.old_value;
    });
    OUTCOME_TRY(check_receivers(changes, wanted, stored));
    for (auto const& change : changes) {
        if (!earlier.contains(change.setting)) { // it can always be put back
            OUTCOME_TRY(check_usable(change));
        }
    }
    return changes;
}

core::Result<void> write_settings(Connection const& connection, Wanted const& wanted,
                                  std::vector<Change> const& changes) {
    OUTCOME_TRY(store, connection.prepare("INSERT INTO setting(path, value) VALUES(?1, ?2) ON CONFLICT(path) "
                                          "DO UPDATE SET value = excluded.value"));
    OUTCOME_TRY(remove, connection.prepare("DELETE FROM setting WHERE path = ?1"));
    OUTCOME_TRY(leave, connection.prepare("DELETE FROM on_trial WHERE path = ?1"));
    for (auto const& change : changes) {
        auto const& value = wanted.at(change.setting);
        std::string_view const path = change.setting->path;
        if (value == change.setting->default_value) {
            OUTCOME_TRY(connection.change(remove, path));
        } else {
            OUTCOME_TRY(connection.change(store, path, value));
        }
        OUTCOME_TRY(connection.change(leave, path));
    }
    // A trial without settings is over.
    return connection.execute("DELETE FROM pending WHERE number NOT IN (SELECT number FROM on_trial)");
}

/// Settings come in the order of their table, where those of one field stand together.
void add_field(Setting const& setting, std::vector<std::uint32_t>& fields) {
    if (fields.empty() || fields.back() != setting.field_id) {
        fields.push_back(setting.field_id);
    }
}

core::Result<void> enter_in_journal(Connection const& connection, std::span<std::uint32_t const> fields) {
    OUTCOME_TRY(note, connection.prepare("INSERT INTO journal(field_id, at) VALUES(?1, ?2)"));
    std::int64_t const now = std::time(nullptr);
    for (auto const field : fields) {
        OUTCOME_TRY(connection.change(note, std::int64_t{field}, now));
    }
    return core::success();
}

// The journal keeps its last 10 000 entries. A commit drops at most the oldest 1000, one range of a key.
constexpr char const* prune_journal = R"(
    DELETE FROM journal WHERE sequence <= min((SELECT max(sequence) FROM journal) - 10000,
                                              (SELECT min(sequence) FROM journal) + 999);
)";

// Rows and not whole transactions, since one may have thousands.
constexpr char const* prune_history = R"(
    DELETE FROM history WHERE entry IN (SELECT entry FROM history
        WHERE number <= (SELECT max(number) FROM history) - ?1 ORDER BY number LIMIT ?2)
)";

/// Drops little, so that a commit costs the same however much the database holds. As it drops a few more rows
/// of the history than are added, that does not grow while any are left to be dropped.
core::Result<void> prune(Connection const& connection, std::size_t added) {
    constexpr std::int64_t most_more = 15;
    OUTCOME_TRY(connection.execute(prune_journal));
    OUTCOME_TRY(drop, connection.prepare(prune_history));
    OUTCOME_TRY(connection.change(drop, kept_transactions, static_cast<std::int64_t>(added) + most_more));
    return connection.execute(
        "DELETE FROM transaction_note WHERE number < (SELECT min(number) FROM history)");
}

std::string name_of(uid_t user) {
    auto const* const entry = getpwuid(user);
    return entry != nullptr ? entry->pw_name : fmt::format("uid {}", user);
}

constexpr std::int64_t nobody_has_logged_in = 4294967295; // as the kernel says it: a service, or no session

core::Result<void> record_changes(Connection const& connection, std::vector<Change> const& changes,
                                  std::string_view author, std::string_view kind, std::string_view comment) {
    OUTCOME_TRY(remember, connection.prepare("INSERT INTO history(number, at, author, path, old, new) "
                                             "VALUES(?1, ?2, ?3, ?4, ?5, ?6)"));
    OUTCOME_TRY(newest, connection.number("SELECT max(number) FROM history"));
    std::int64_t const now = std::time(nullptr);
    std::vector<std::uint32_t> fields;
    for (auto const& [setting, old_value, new_value] : changes) {
        add_field(*setting, fields);
        OUTCOME_TRY(connection.change(remember, newest + 1, now, author, std::string_view{setting->path},
                                      std::string_view{old_value}, std::string_view{new_value}));
    }
    OUTCOME_TRY(enter_in_journal(connection, fields));
    OUTCOME_TRY(describe, connection.prepare("INSERT OR REPLACE INTO transaction_note(number, kind, account, "
                                             "comment) VALUES(?1, ?2, ?3, ?4)"));
    auto const accounts = Caller::current().accounts();
    OUTCOME_TRY(connection.change(describe, newest + 1, kind, std::string_view{accounts}, comment));
    return prune(connection, changes.size());
}

} // namespace

Caller Caller::current() {
    Caller caller;
    caller.user = name_of(getuid());
    std::int64_t login = -1;
    if (std::ifstream{"/proc/self/loginuid"} >> login && login >= 0 && login < nobody_has_logged_in) {
        caller.login = name_of(static_cast<uid_t>(login));
    }
    // Root alone is believed: anybody else may have written it.
    if (char const* const name = std::getenv("SUDO_USER"); getuid() == 0 && name != nullptr) {
        caller.by_sudo = name;
    }
    return caller;
}

std::string Caller::author() const {
    return !login.empty() ? login : !by_sudo.empty() ? by_sudo : user;
}

std::string Caller::accounts() const {
    std::string used;
    auto const person = author();
    for (auto const& account : {by_sudo, user}) {
        if (!account.empty() && account != person) {
            used += (used.empty() ? "" : ", ") + account;
        }
    }
    return used;
}

std::string current_author() {
    return Caller::current().author();
}

core::Result<void> Transaction::set(std::string_view pattern, std::string_view value) {
    OUTCOME_TRY(found, settable(pattern));
    std::vector<Value> values;
    values.reserve(found.size());
    for (auto const* setting : found) {
        OUTCOME_TRY(parsed, parse(*setting, value));
        values.push_back(std::move(parsed));
    }
    for (std::size_t i = 0; i < found.size(); ++i) {
        wanted.insert_or_assign(found[i], std::move(values[i]));
        earlier.erase(found[i]);
    }
    return core::success();
}

core::Result<void> Transaction::reset(std::string_view pattern) {
    OUTCOME_TRY(found, settable(pattern));
    for (auto const* setting : found) {
        wanted.insert_or_assign(setting, setting->default_value);
        earlier.erase(setting);
    }
    return core::success();
}

core::Result<void> Transaction::put_back(std::string_view path, std::string_view from, std::string_view to) {
    return put_back_from(path, std::string{from}, to);
}

core::Result<void> Transaction::put_back(std::string_view path, std::string_view to) {
    return put_back_from(path, std::nullopt, to);
}

core::Result<void> Transaction::put_back_from(std::string_view path, std::optional<std::string> from,
                                              std::string_view to) {
    OUTCOME_TRY(set(path, to));
    OUTCOME_TRY(found, settable(path));
    for (auto const* setting : found) {
        earlier.insert_or_assign(setting, from);
    }
    return core::success();
}

core::Result<std::vector<Change>> Transaction::preview(std::filesystem::path const& folder) const {
    OUTCOME_TRY(store, Store::open({}, folder, Store::Access::Read));
    return planned(wanted, earlier, store->unshared());
}

core::Result<std::vector<Change>> Transaction::plan(Session const& session) const {
    return planned(wanted, earlier, session.connection());
}

core::Result<std::vector<Change>> Transaction::write(Session& session, std::string const& author) const {
    OUTCOME_TRY(changes, plan(session));
    if (!changes.empty()) {
        OUTCOME_TRY(session.prepare_to_write());
        OUTCOME_TRY(write_settings(session.connection(), wanted, changes));
        OUTCOME_TRY(record_changes(session.connection(), changes, author, kind, comment));
    }
    return std::move(changes);
}

core::Result<std::vector<Change>> Transaction::commit(std::filesystem::path const& folder,
                                                      std::string const& author) const {
    OUTCOME_TRY(session, Session::begin(folder));
    OUTCOME_TRY(changes, write(*session, author));
    OUTCOME_TRY(session->commit());
    return std::move(changes);
}

std::vector<std::uint32_t> Transaction::fields() const {
    std::vector<std::uint32_t> fields;
    for (auto const& [setting, value] : wanted) {
        add_field(*setting, fields);
    }
    return fields;
}

core::Result<void> deliver_again(std::span<std::uint32_t const> fields, std::filesystem::path const& folder) {
    OUTCOME_TRY(session, Session::begin(folder));
    OUTCOME_TRY(session->prepare_to_write());
    OUTCOME_TRY(enter_in_journal(session->connection(), fields));
    OUTCOME_TRY(prune(session->connection(), 0));
    return session->commit();
}

core::Result<bool> remove_stray_row(std::string_view path, std::filesystem::path const& folder) {
    if (auto const* const setting = find_setting(path); setting != nullptr && !setting->built_in()) {
        return false;
    }
    OUTCOME_TRY(session, Session::begin(folder));
    auto const& connection = session->connection();
    OUTCOME_TRY(search, connection.prepare("SELECT 1 FROM setting WHERE path = ?1"));
    if (auto rows = search.run(path); !rows.next()) {
        OUTCOME_TRY(connection.check_end(rows));
        return false;
    }
    OUTCOME_TRY(session->prepare_to_write());
    OUTCOME_TRY(remove, connection.prepare("DELETE FROM setting WHERE path = ?1"));
    OUTCOME_TRY(connection.change(remove, path));
    OUTCOME_TRY(session->commit());
    return true;
}

core::Result<void> settle(std::filesystem::path const& folder) {
    OUTCOME_TRY(session, Session::begin(folder));
    OUTCOME_TRY(session->prepare_to_write());
    // The same value once more: a write for the log, which takes the place of what was not announced.
    OUTCOME_TRY(version, session->connection().number("PRAGMA user_version"));
    OUTCOME_TRY(session->connection().execute(fmt::format("PRAGMA user_version = {}", version).c_str()));
    return session->commit();
}

core::Result<std::vector<StoredSetting>> stored_settings(std::filesystem::path const& folder) {
    OUTCOME_TRY(store, Store::open({}, folder, Store::Access::Read));
    std::vector<StoredSetting> stored;
    stored.reserve(settings().size());
    OUTCOME_TRY(each_row(store->unshared(), [&stored](auto path, auto const* setting, StoredRow const& row) {
        stored.push_back({std::string{path}, setting, row.value.has_value(), row.text});
    }));
    return stored;
}

} // namespace xpon::cfgdb
