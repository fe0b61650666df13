#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "core/result.hpp"
#include "core/unique_fd.hpp"
#include "files.hpp"
#include "record.hpp"
#include "sqlite.hpp"

namespace xpon::cfgdb {

/// Why a record could not be read: the value for `errno`, and a text that begins with the database's path.
struct ReadFailure {
    int error_number;
    std::string text;
};

/// What a row of the settings' table holds.
struct StoredRow {
    std::optional<Value> value; ///< nothing if the setting may not have it
    std::string
        text; ///< the value as an operator writes it, or a description of what is no value; safe to print
};

struct JournalEntry {
    std::int64_t sequence;
    std::uint32_t field_id;
};

/// Changes with the whole content: by opening other files, or by a restore into the same ones.
struct ContentId {
    std::int64_t openings = 0;
    std::int64_t schema_cookie = 0;

    bool operator==(ContentId const&) const = default;
};

struct Journal {
    ContentId content;
    std::vector<JournalEntry> entries; ///< oldest first
};

/// Creates folder, database and doorbell if there is no database.
core::Result<void> make_database(std::filesystem::path const& folder);

core::Result<bool> has_table(Connection const& connection, std::string_view name);

/// Adds the tables that an older database does not have, within the caller's transaction.
core::Result<void> add_what_is_missing(Connection const& connection);

/// Fails unless the file is a configuration database of a schema version that this program knows and contains
/// only tables: a view in place of a table may never end, and a trigger could do anything at a change.
core::Result<void> check_schema(Connection const& connection);

/// An open configuration database, the object behind the raw handle. Safe from any thread. If its files are
/// replaced or removed, the next use opens what is there then. While that fails, each use fails and tries
/// again.
class Store {
  public:
    enum class Access {
        Read,  ///< an existing database; needs no more than the permission to read it
        Write, ///< creates folder and database if they do not exist
    };

    /// `name` begins the library's own log lines. Errors name the path and the reason.
    static core::Result<std::shared_ptr<Store>> open(std::string name, std::filesystem::path const& folder,
                                                     Access access);

    /// Fills `out`, which is as long as the record, with the defaults and the stored values. On failure `out`
    /// is unchanged.
    std::optional<ReadFailure> read(Record const& record, void* out) const;

    /// The journal from this entry on; without one, its newest entry.
    core::Result<Journal> journal_from(std::optional<std::int64_t> sequence) const;

    /// Only for a store that no other thread uses.
    Connection const& unshared() const { return opened->connection; }

    std::string const& name() const { return log_name; }
    std::filesystem::path const& path() const { return file; }

  private:
    struct Opened {
        FileIdentities files; ///< as they were before it was opened
        Connection connection;
        Statement record_rows;
        Statement journal_rows;
        std::int64_t checked_schema; ///< the cookie of the schema that was found good
    };

    /// Kept while nothing is open.
    struct LastOpened {
        FileIdentities files;
        core::UniqueFd database;
        core::UniqueFd log;
    };

    Store(std::string name, std::filesystem::path path, Access wanted);
    static core::Result<Opened> open_files(std::filesystem::path const& file, Access access);
    /// Opens what is at the path now, unless it is open already. Call it with the mutex held.
    core::Result<Opened*> current() const;

    std::string log_name;
    std::filesystem::path file;
    Access access;
    mutable std::mutex mutex;
    mutable std::unique_ptr<Opened> opened; // guarded by mutex, as is what follows; null after a failure
    mutable LastOpened last;
    mutable std::int64_t openings = 0;
};

/// Opens an existing database, whatever it holds. Closing it leaves its log alone.
core::Result<Connection> open_database(std::filesystem::path const& file, Store::Access access);

/// Applies the settings that every writer uses.
core::Result<void> settle_as_writer(Connection const& connection);

/// Passes every row of the settings' table to `take`, ordered by path. The setting is null if the path is not
/// a setting, or a built-in one.
core::Result<void>
each_row(Connection const& connection,
         std::function<void(std::string_view path, Setting const* setting, StoredRow row)> const& take);

} // namespace xpon::cfgdb
