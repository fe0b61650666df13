#include "store.hpp"

#include <cerrno>
#include <cstring>

#include <fcntl.h>

#include "core/failure.hpp"
#include "xpon/cfgdb/printable.hpp"

namespace xpon::cfgdb {

namespace {

using core::Error;
using core::fail;

constexpr std::int64_t application_id = 0x58504C43; // "XPLC" in the file's header
constexpr std::int64_t schema_version = 1;
constexpr char const* schema_cookie = "PRAGMA schema_version"; // of the file, by SQLite itself

// What came after the first release. Older programs know none of it and go on working, so the version stays.
// The table `trial` is theirs; a trial that is pending there is taken over.
constexpr char const* additions = R"(
    CREATE TABLE IF NOT EXISTS transaction_note(number INTEGER PRIMARY KEY, kind TEXT NOT NULL,
                                                account TEXT NOT NULL, comment TEXT NOT NULL);
    CREATE TABLE IF NOT EXISTS on_trial(path TEXT PRIMARY KEY, number INTEGER NOT NULL,
                                        back TEXT NOT NULL) WITHOUT ROWID;
    CREATE TABLE IF NOT EXISTS trial(number INTEGER PRIMARY KEY, boot TEXT NOT NULL, until INTEGER NOT NULL,
                                     author TEXT NOT NULL);
    INSERT OR IGNORE INTO on_trial SELECT path, number, old FROM history WHERE number IN (SELECT number FROM trial)
        AND path NOT IN (SELECT path FROM history WHERE number > (SELECT max(number) FROM trial));
    CREATE TABLE IF NOT EXISTS pending(number INTEGER PRIMARY KEY, boot TEXT NOT NULL, until INTEGER NOT NULL,
                                       author TEXT NOT NULL, temporary INTEGER NOT NULL, timer TEXT NOT NULL);
    INSERT OR IGNORE INTO pending SELECT number, boot, until, author, 0, '' FROM trial
        WHERE number IN (SELECT number FROM on_trial);
    DROP TABLE trial;
)";
constexpr char const* newest_table = "pending";

// A setting has a row only while it differs from its default. The column has no type: a value of a wrong type
// is then noticed and not converted. AUTOINCREMENT: a number of the journal is never used twice, even if the
// newest rows have been deleted.
std::string schema() {
    return fmt::format(R"(
    PRAGMA journal_mode = WAL;
    BEGIN IMMEDIATE;
    PRAGMA application_id = {};
    PRAGMA user_version = {};
    CREATE TABLE setting(path TEXT PRIMARY KEY, value) WITHOUT ROWID;
    CREATE TABLE journal(sequence INTEGER PRIMARY KEY AUTOINCREMENT, field_id INTEGER NOT NULL, at INTEGER NOT NULL);
    CREATE TABLE history(entry INTEGER PRIMARY KEY, number INTEGER NOT NULL, at INTEGER NOT NULL,
                         author TEXT NOT NULL, path TEXT NOT NULL, old TEXT NOT NULL, new TEXT NOT NULL);
    CREATE INDEX history_by_number ON history(number);
    {}
    COMMIT;
)",
                       application_id, schema_version, additions);
}

core::Result<void> fill_new_database(std::filesystem::path const& file) {
    OUTCOME_TRY(connection, Connection::open(file, SQLITE_OPEN_READWRITE));
    return connection.execute(schema().c_str());
}

int error_number_of(int code) {
    return (code & 0xFF) == SQLITE_BUSY ? EBUSY : EIO;
}

constexpr FileIdentities::Identity no_file{};

/// Keeps the inode number of a removed file from being reused. Closing this descriptor, unlike any other,
/// does not release SQLite's locks.
core::UniqueFd hold(std::filesystem::path const& path) {
    return core::UniqueFd{open(path.c_str(), O_PATH | O_CLOEXEC)};
}

} // namespace

core::Result<void> make_database(std::filesystem::path const& folder) {
    auto const path = database_path(folder);
    std::error_code unknown; // then opening it says why
    auto const is_there = [&] { return std::filesystem::exists(path, unknown) || unknown; };
    if (is_there()) {
        return core::success();
    }
    OUTCOME_TRY(make_folder(folder));
    OUTCOME_TRY(locked, take_turns(folder));
    core::UniqueFd const turn{std::move(locked)};
    if (is_there()) {
        return core::success();
    }
    // A removed database may have left its log behind, whose pages would be merged into the new one.
    remove_log(path);
    OUTCOME_TRY(make_file(path, fill_new_database));
    return make_doorbell(folder);
}

core::Result<bool> has_table(Connection const& connection, std::string_view name) {
    OUTCOME_TRY(search, connection.prepare("SELECT 1 FROM sqlite_schema WHERE type = 'table' AND name = ?1"));
    auto rows = search.run(name);
    bool const found = rows.next();
    if (!found) {
        OUTCOME_TRY(connection.check_end(rows));
    }
    return found;
}

core::Result<void> add_what_is_missing(Connection const& connection) {
    OUTCOME_TRY(up_to_date, has_table(connection, newest_table));
    return up_to_date ? core::success() : connection.execute(additions);
}

core::Result<void> check_schema(Connection const& connection) {
    OUTCOME_TRY(application, connection.number("PRAGMA application_id"));
    if (application != application_id) {
        return fail(Error::InvalidState, "{}: not a configuration database (application id {}, not {})",
                    connection.path().string(), application, application_id);
    }
    OUTCOME_TRY(version, connection.number("PRAGMA user_version"));
    if (version != schema_version) {
        return fail(Error::InvalidState, "{}: its schema version is {}, this program knows version {}",
                    connection.path().string(), version, schema_version);
    }
    // Views, triggers and virtual tables have no pages of their own.
    OUTCOME_TRY(foreign,
                connection.prepare("SELECT type, name FROM sqlite_schema WHERE ifnull(rootpage, 0) = 0"));
    auto rows = foreign.run();
    if (rows.next()) {
        bool const table = rows.text(0) == "table";
        return fail(Error::InvalidState,
                    "{}: holds the {}{} {}; a configuration database has only tables; restore it from a copy",
                    connection.path().string(), table ? "virtual " : "", plain(rows.text(0)),
                    printable(rows.text(1)));
    }
    return connection.check_end(rows);
}

core::Result<Connection> open_database(std::filesystem::path const& file, Store::Access access) {
    OUTCOME_TRY(connection, Connection::open(file, access == Store::Access::Write ? SQLITE_OPEN_READWRITE
                                                                                  : SQLITE_OPEN_READONLY));
    // Without the log files, a user without write permission could not open the database after the last
    // writer has closed it.
    connection.keep_log();
    // A log that does not belong to the file (it may be half a copy) must not be merged into it.
    connection.empty_log_at_close(false);
    return std::move(connection);
}

core::Result<void> settle_as_writer(Connection const& connection) {
    // With a size limit the last connection to close empties the log. Otherwise its old pages would be merged
    // into a database file that is restored from a copy.
    OUTCOME_TRY(connection.execute(
        "PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL; PRAGMA journal_size_limit = 1048576"));
    connection.empty_log_at_close(true);
    return core::success();
}

Store::Store(std::string name, std::filesystem::path path, Access wanted)
  : log_name{std::move(name)}
  , file{std::move(path)}
  , access{wanted} {}

core::Result<std::shared_ptr<Store>> Store::open(std::string name, std::filesystem::path const& folder,
                                                 Access access) {
    if (access == Access::Write) {
        OUTCOME_TRY(make_database(folder));
    }
    std::shared_ptr<Store> store{new Store{std::move(name), database_path(folder), access}};
    OUTCOME_TRY(store->current());
    return store;
}

core::Result<Store::Opened> Store::open_files(std::filesystem::path const& file, Access access) {
    auto const files = identities(file);
    OUTCOME_TRY(connection, open_database(file, access));
    OUTCOME_TRY(check_schema(connection));
    if (access == Access::Write) {
        OUTCOME_TRY(settle_as_writer(connection));
    }
    OUTCOME_TRY(cookie, connection.number(schema_cookie));
    // One statement, so a record is always one consistent state. To compare each path with an upper limit as
    // well took a fifth of the instructions of a reading.
    OUTCOME_TRY(records,
                connection.prepare("SELECT path, value FROM setting WHERE path >= ?1 ORDER BY path"));
    OUTCOME_TRY(journal, connection.prepare("SELECT sequence, field_id FROM journal WHERE sequence >= "
                                            "ifnull(?1, (SELECT max(sequence) FROM journal)) "
                                            "ORDER BY sequence"));
    return Opened{files, std::move(connection), std::move(records), std::move(journal), cookie};
}

core::Result<Store::Opened*> Store::current() const {
    // Opening can make the log and its index, and others may be replacing the files just then.
    constexpr int most_attempts = 3;
    for (int attempt = 0; attempt < most_attempts && (!opened || opened->files != identities(file));
         ++attempt) {
        if (opened) {
            // Other processes use another log now.
            opened->connection.empty_log_at_close(false);
            // Close it before opening the next: connections of one process share the log's index.
            opened.reset();
        }
        auto const now = identities(file);
        if (access == Access::Write && now.database != no_file && now.database != last.files.database &&
            now.log != no_file && now.log == last.files.log) {
            // Another file has replaced the database and would be read with the log of the old one, which
            // mixes pages of two databases.
            remove_log(file);
        }
        OUTCOME_TRY(fresh, open_files(file, access));
        last = {fresh.files, hold(file), hold(log_path(file))};
        opened = std::make_unique<Opened>(std::move(fresh));
        ++openings;
    }
    return opened.get();
}

std::optional<ReadFailure> Store::read(Record const& record, void* out) const {
    std::lock_guard const lock{mutex};
    auto const failed = [this](int error_number, std::string_view text) {
        return ReadFailure{error_number, fmt::format("{}: {}", file.string(), text)};
    };
    auto const now = current();
    if (now.has_error()) {
        return ReadFailure{EIO, now.error().message()};
    }
    auto const& [files, connection, record_rows, journal_rows, cookie] = *now.value();
    auto filled = record.defaults;
    auto rows = record_rows.run(std::string_view{record.prefix});
    PathWalk walk{record.by_path};
    while (rows.next()) {
        auto const path = rows.text(0);
        auto const* const setting = walk.find(path);
        if (setting == nullptr) {
            if (!path.starts_with(record.prefix)) {
                break;
            }
            continue; // not a setting of this program; it does no harm
        }
        auto const value = rows.value(1);
        if (!value || !is_allowed(setting->kind, *value)) {
            return failed(EINVAL,
                          fmt::format("{}: {}", path, wrongly_stored(rows.description(1), setting->kind)));
        }
        put(*setting, *value, filled);
    }
    if (rows.result() != SQLITE_DONE && rows.result() != SQLITE_ROW) {
        return failed(error_number_of(rows.result()),
                      fmt::format("{}*: {}", record.prefix, connection.reason(rows.result())));
    }
    if (auto const wrong = contradiction(record, filled)) {
        return failed(EINVAL, *wrong);
    }
    std::memcpy(out, filled.data(), filled.size());
    return std::nullopt;
}

core::Result<Journal> Store::journal_from(std::optional<std::int64_t> sequence) const {
    std::lock_guard const lock{mutex};
    OUTCOME_TRY(now, current());
    auto& [files, connection, record_rows, journal_rows, checked_schema] = *now;
    // Pages of a copy that was written over the file are not announced by the log.
    connection.forget_pages();
    OUTCOME_TRY(connection.execute("BEGIN"));
    Rollback const one_state{connection};
    // SQLite's restore counts it up.
    OUTCOME_TRY(cookie, connection.number(schema_cookie));
    if (cookie != checked_schema) {
        OUTCOME_TRY(check_schema(connection));
        checked_schema = cookie;
    }
    Journal journal{{openings, cookie}, {}};
    auto rows = sequence ? journal_rows.run(*sequence) : journal_rows.run();
    while (rows.next()) {
        journal.entries.push_back({rows.number(0), static_cast<std::uint32_t>(rows.number(1))});
    }
    OUTCOME_TRY(connection.check_end(rows));
    return journal;
}

core::Result<void>
each_row(Connection const& connection,
         std::function<void(std::string_view path, Setting const* setting, StoredRow row)> const& take) {
    OUTCOME_TRY(statement, connection.prepare("SELECT path, value FROM setting ORDER BY path"));
    auto rows = statement.run();
    PathWalk walk{settings_by_path()};
    while (rows.next()) {
        auto const path = rows.text(0);
        auto const* setting = walk.find(path);
        if (setting != nullptr && setting->built_in()) {
            setting = nullptr;
        }
        auto value = rows.value(1);
        if (setting != nullptr && value && is_allowed(setting->kind, *value)) {
            auto text = to_text(setting->kind, *value);
            take(path, setting, {std::move(value), std::move(text)});
        } else {
            take(path, setting, {std::nullopt, rows.description(1)});
        }
    }
    return connection.check_end(rows);
}

} // namespace xpon::cfgdb
