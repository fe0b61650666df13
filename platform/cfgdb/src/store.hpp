#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "core/result.hpp"
#include "record.hpp"
#include "sqlite.hpp"

namespace xpon::cfgdb {

/// Why a record could not be read: what `errno` is to be, and what to tell people.
struct ReadFailure {
    int error_number;
    std::string text;
};

/// What a row of the settings' table holds.
struct StoredValue {
    std::optional<Value> value; ///< nothing if it is none that the setting may have
    std::string description;    ///< of such a one, for people: safe to print
};

struct JournalEntry {
    std::int64_t sequence;
    std::uint32_t field_id;
};

/// An open configuration database; what stands behind the raw handle. Safe from any thread.
class Store {
  public:
    enum class Access {
        Read,  ///< an existing database; needs no more than the permission to read it
        Write, ///< makes folder and database where there are none
    };

    /// `name` heads the library's own log lines. The errors name the path and the reason.
    static core::Result<std::shared_ptr<Store>> open(std::string name, std::filesystem::path const& folder,
                                                     Access access);

    /// Fills `out`, which is as long as the record, with the defaults and what is stored; on failure `out` is
    /// left alone.
    std::optional<ReadFailure> read(Record const& record, void* out) const;

    /// The number of the newest journal entry, 0 if there is none.
    core::Result<std::int64_t> journal_head() const;
    /// The journal from this entry on, oldest first.
    core::Result<std::vector<JournalEntry>> journal_from(std::int64_t sequence) const;

    /// For the one user of a store of its own.
    Connection const& unshared() const { return connection; }

    std::string const& name() const { return log_name; }
    std::filesystem::path const& path() const { return connection.path(); }

  private:
    Store(std::string name, Connection&& opened, Statement&& record_rows, Statement&& journal_rows);

    std::string log_name;
    mutable std::mutex mutex;
    Connection connection; // guarded by mutex, as are the statements
    Statement record_rows;
    Statement journal_rows;
};

/// Hands out every row of the settings' table, by path; the setting is null where there is none of that path
/// (or a built-in one).
core::Result<void>
each_row(Connection const& connection,
         std::function<void(std::string_view path, Setting const* setting, StoredValue value)> const& take);

} // namespace xpon::cfgdb
