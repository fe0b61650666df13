#include "store.hpp"

#include <cerrno>
#include <cstring>

#include "core/failure.hpp"
#include "files.hpp"

namespace xpon::cfgdb {

namespace {

using core::Error;
using core::fail;

constexpr std::int64_t application_id = 0x58504C43; // "XPLC" in the file's header
constexpr std::int64_t schema_version = 1;

constexpr char const* trial_table = "CREATE TABLE IF NOT EXISTS trial(number INTEGER PRIMARY KEY, "
                                    "boot TEXT NOT NULL, until INTEGER NOT NULL, author TEXT NOT NULL)";

// A setting has a row only while it differs from its default. No column type: what was stored comes back
// as it was, so that a value of a wrong type is noticed and not converted. AUTOINCREMENT: a reader's position
// in the journal is never used twice, also when the newest rows are gone.
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
    {};
    COMMIT;
)",
                       application_id, schema_version, trial_table);
}

core::Result<void> fill_new_database(std::filesystem::path const& file) {
    OUTCOME_TRY(connection, Connection::open(file, SQLITE_OPEN_READWRITE));
    return connection.execute(schema().c_str());
}

core::Result<void> make_database(std::filesystem::path const& folder) {
    auto const path = database_path(folder);
    std::error_code unknown; // then opening it says why
    if (std::filesystem::exists(path, unknown) || unknown) {
        return core::success();
    }
    OUTCOME_TRY(make_folder(folder));
    return make_file(path, fill_new_database);
}

core::Result<void> check_identity(Connection const& connection) {
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
    return core::success();
}

int error_number_of(int code) {
    return (code & 0xFF) == SQLITE_BUSY ? EBUSY : EIO;
}

constexpr char const* gone = "the database was removed or replaced while it was open; start again";

} // namespace

Store::Store(std::string name, Connection&& opened, Statement&& prepared_record_rows,
             Statement&& prepared_journal_rows)
  : log_name{std::move(name)}
  , connection{std::move(opened)}
  , record_rows{std::move(prepared_record_rows)}
  , journal_rows{std::move(prepared_journal_rows)} {}

core::Result<std::shared_ptr<Store>> Store::open(std::string name, std::filesystem::path const& folder,
                                                 Access access) {
    bool const write = access == Access::Write;
    if (write) {
        OUTCOME_TRY(make_database(folder));
    }
    OUTCOME_TRY(opened, Connection::open(database_path(folder),
                                         write ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY));
    // Without its log beside it, a user who may only read could not open the database once the last writer
    // has closed it.
    opened.keep_log();
    OUTCOME_TRY(check_identity(opened));
    if (write) {
        // With a size limit the last one to close empties the log that stays behind. Otherwise its old pages
        // would come back over a database file that is restored from a copy.
        OUTCOME_TRY(opened.execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL; "
                                   "PRAGMA journal_size_limit = 1048576"));
        // A database of the first release has none.
        OUTCOME_TRY(opened.execute(trial_table));
    }
    // A range of the primary key: one statement, so one record is always one consistent state.
    OUTCOME_TRY(records, opened.prepare("SELECT path, value FROM setting WHERE path >= ?1 AND path < ?2"));
    OUTCOME_TRY(journal,
                opened.prepare("SELECT sequence, field_id FROM journal WHERE sequence >= ?1 ORDER BY 1"));
    return std::shared_ptr<Store>{
        new Store{std::move(name), std::move(opened), std::move(records), std::move(journal)}};
}

std::optional<ReadFailure> Store::read(Record const& record, void* out) const {
    std::lock_guard const lock{mutex};
    if (connection.moved()) {
        return ReadFailure{EIO, gone};
    }
    auto filled = record.defaults;
    auto end = record.prefix;
    ++end.back();
    auto rows = record_rows.run(std::string_view{record.prefix}, std::string_view{end});
    PathWalk walk{record.by_path};
    while (rows.next()) {
        auto const path = rows.text(0);
        auto const* const setting = walk.find(path);
        if (setting == nullptr) {
            continue; // no setting of this program, nor can it harm one
        }
        auto const value = rows.value(1);
        if (!value || !is_allowed(setting->kind, *value)) {
            return ReadFailure{EINVAL, fmt::format("{}: {} is stored, allowed is {}", path,
                                                   rows.description(1), allowed(setting->kind))};
        }
        put(*setting, *value, filled);
    }
    if (rows.result() != SQLITE_DONE) {
        return ReadFailure{error_number_of(rows.result()),
                           fmt::format("{}*: {}", record.prefix, connection.reason(rows.result()))};
    }
    if (auto wrong = contradiction(record, filled)) {
        return ReadFailure{EINVAL, *std::move(wrong)};
    }
    std::memcpy(out, filled.data(), filled.size());
    return std::nullopt;
}

core::Result<std::int64_t> Store::journal_head() const {
    std::lock_guard const lock{mutex};
    return connection.number("SELECT max(sequence) FROM journal");
}

core::Result<std::vector<JournalEntry>> Store::journal_from(std::int64_t sequence) const {
    std::lock_guard const lock{mutex};
    if (connection.moved()) {
        return fail(Error::InvalidState, "{}: {}", connection.path().string(), gone);
    }
    std::vector<JournalEntry> entries;
    auto rows = journal_rows.run(sequence);
    while (rows.next()) {
        entries.push_back({rows.number(0), static_cast<std::uint32_t>(rows.number(1))});
    }
    if (rows.result() != SQLITE_DONE) {
        return connection.failure(rows.result());
    }
    return entries;
}

core::Result<void>
each_row(Connection const& connection,
         std::function<void(std::string_view path, Setting const* setting, StoredValue value)> const& take) {
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
            take(path, setting, {std::move(value), {}});
        } else {
            take(path, setting, {std::nullopt, rows.description(1)});
        }
    }
    if (rows.result() != SQLITE_DONE) {
        return connection.failure(rows.result());
    }
    return core::success();
}

} // namespace xpon::cfgdb
