#pragma once

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

/// One run of a statement; at its end the statement is ready for the next. One row is current at a time.
class Rows {
  public:
    explicit Rows(sqlite3_stmt* running)
      : statement{running} {}
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
    /// Whatever is stored, for people: safe to print.
    std::string description(int column) const;

  private:
    sqlite3_stmt* statement;
    int code = SQLITE_OK;
};

class Statement {
  public:
    explicit Statement(sqlite3_stmt* prepared)
      : handle{prepared} {}

    /// Starts a run with these parameters, which are only looked at while it lasts.
    template <class... Args>
    Rows run(Args const&... args) const {
        int index = 0;
        (bind(++index, args), ...);
        return Rows{handle.get()};
    }

  private:
    void bind(int index, std::int64_t number) const;
    void bind(int index, std::string_view text) const;
    void bind(int index, Value const& value) const;

    struct Finalize {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };
    std::unique_ptr<sqlite3_stmt, Finalize> handle;
};

/// A connection to one database file. One thread at a time. Errors name the file and the reason.
class Connection {
  public:
    /// How long a lock of somebody else is waited for.
    static constexpr int patience_ms = 5000;

    /// Opens an existing file; SQLITE_OPEN_READWRITE fails without the permission to write.
    static core::Result<Connection> open(std::filesystem::path const& file, int flags);

    core::Result<Statement> prepare(char const* sql) const;
    /// Runs one or more statements that return nothing of interest.
    core::Result<void> execute(char const* sql) const;
    /// Runs a statement that changes rows.
    template <class... Args>
    core::Result<void> change(Statement const& statement, Args const&... args) const {
        auto rows = statement.run(args...);
        rows.next();
        return rows.result() == SQLITE_DONE ? core::Result<void>{core::success()} : failure(rows.result());
    }
    /// The number in the first column of the first row, 0 if it is NULL.
    core::Result<std::int64_t> number(char const* sql) const;

    /// Leaves the log's files there when the last connection closes.
    void keep_log() const;
    /// Whether the file no longer is the one that was opened.
    bool moved() const;
    /// Why a call gave this error code, in words.
    std::string reason(int code) const;
    core::ErrorPayload failure(int code) const;

    std::filesystem::path const& path() const { return file; }

  private:
    struct Close {
        void operator()(sqlite3* database) const { sqlite3_close(database); }
    };
    using Handle = std::unique_ptr<sqlite3, Close>;

    Connection(std::filesystem::path path, Handle open_database)
      : file{std::move(path)}
      , handle{std::move(open_database)} {}

    std::filesystem::path file;
    Handle handle;
};

} // namespace xpon::cfgdb
