#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <sqlite3.h>

#include "core/result.hpp"
#include "xpon/cfgdb/settings.hpp"

namespace xpon::cfgdb {

/// Ends a statement that runs for too long: a view or a cross join may never end. Time spent waiting for a
/// lock does not count.
class RunLimit {
  public:
    using Clock = std::chrono::steady_clock;

    void restart() { end.reset(); }
    /// SQLite calls this regularly while a statement runs; true ends the statement.
    bool exceeded();
    void set(std::chrono::seconds most) { limit = most; }
    std::chrono::seconds get() const { return limit; }

  private:
    std::chrono::seconds limit{5};
    std::optional<Clock::time_point> end; // of the statement that runs, once it has run for a moment
};

/// One run of a statement. Its destruction makes the statement ready for the next run.
class Rows {
  public:
    Rows(sqlite3_stmt* running, RunLimit& limit)
      : statement{running} {
        limit.restart();
    }
    ~Rows();
    Rows(Rows const&) = delete;
    Rows& operator=(Rows const&) = delete;

    /// Goes to the next row; false at the end and on a failure.
    bool next();
    /// SQLITE_DONE after the last row, an error code after a failure.
    int result() const { return code; }

    std::int64_t number(int column) const { return sqlite3_column_int64(statement, column); }
    std::string_view text(int column) const;
    /// Nothing if what is stored is neither an integer nor a text.
    std::optional<Value> value(int column) const;
    /// Describes whatever is stored; safe to print.
    std::string description(int column) const;

  private:
    sqlite3_stmt* statement;
    int code = SQLITE_OK;
};

class Statement {
  public:
    Statement(sqlite3_stmt* prepared, RunLimit& of_connection)
      : handle{prepared}
      , limit{&of_connection} {}

    /// Starts a run with these parameters, which must outlive it.
    template <class... Args>
    Rows run(Args const&... args) const {
        int index = 0;
        (bind(++index, args), ...);
        return Rows{handle.get(), *limit};
    }

  private:
    void bind(int index, std::int64_t number) const;
    void bind(int index, std::string_view text) const;
    void bind(int index, Value const& value) const;

    struct Finalize {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };
    std::unique_ptr<sqlite3_stmt, Finalize> handle;
    RunLimit* limit;
};

/// A connection to one database file. One thread at a time. Errors name the file and the reason in plain
/// ASCII, whatever the file contains.
class Connection {
  public:
    /// How long to wait for another process's lock.
    static constexpr int patience_ms = 5000;

    /// Opens an existing file; SQLITE_OPEN_READWRITE fails without the permission to write.
    static core::Result<Connection> open(std::filesystem::path const& file, int flags);

    /// Opens a file that nobody changes meanwhile for reading; reads no log and creates no file.
    static core::Result<Connection> open_unchanging(std::filesystem::path const& file);

    core::Result<Statement> prepare(char const* sql) const;
    /// Runs one or more statements that return nothing of interest.
    core::Result<void> execute(char const* sql) const;
    /// Runs a statement that changes rows.
    template <class... Args>
    core::Result<void> change(Statement const& statement, Args const&... args) const {
        auto rows = statement.run(args...);
        rows.next();
        return check_end(rows);
    }
    /// Fails if the rows ended with an error instead of the last row.
    core::Result<void> check_end(Rows const& rows) const;
    /// The number in the first column of the first row, 0 if it is NULL.
    core::Result<std::int64_t> number(char const* sql) const;

    /// Keeps the log files when the last connection closes.
    void keep_log() const;
    /// Whether closing the last connection merges the log into the file.
    void empty_log_at_close(bool wanted) const;
    /// Reads pages from the file again, even if the log does not say that they have changed.
    void forget_pages() const;
    /// How long a statement may run; 5 s by default.
    void set_run_limit(std::chrono::seconds most) const { limit->set(most); }
    /// The raw handle, for operations that have no function here.
    sqlite3* raw() const { return handle.get(); }
    /// Why a call gave this error code, in words.
    std::string reason(int code) const;
    core::ErrorPayload failure(int code) const;

    std::filesystem::path const& path() const { return file; }

  private:
    static core::Result<Connection> open_named(std::filesystem::path const& file, std::string const& name,
                                               int flags);

    struct Close {
        void operator()(sqlite3* database) const { sqlite3_close(database); }
    };
    using Handle = std::unique_ptr<sqlite3, Close>;

    Connection(std::filesystem::path path, Handle open_database)
      : file{std::move(path)}
      , handle{std::move(open_database)} {}

    std::filesystem::path file;
    std::unique_ptr<RunLimit> limit =
        std::make_unique<RunLimit>(); // SQLite and the statements know its place
    Handle handle;
};

/// Rolls a transaction back unless it was committed.
class Rollback {
  public:
    explicit Rollback(Connection const& of)
      : connection{of} {}
    // After some failures SQLite has already rolled back; doing it again is harmless.
    ~Rollback() { std::ignore = connection.execute("ROLLBACK"); }
    Rollback(Rollback const&) = delete;
    Rollback& operator=(Rollback const&) = delete;

  private:
    Connection const& connection;
};

} // namespace xpon::cfgdb
