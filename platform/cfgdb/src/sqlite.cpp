#include "sqlite.hpp"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include "core/failure.hpp"
#include "xpon/cfgdb/printable.hpp"

namespace xpon::cfgdb {

using core::Error;
using core::fail;

Rows::~Rows() {
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
    if (code != SQLITE_OK && code != SQLITE_ROW && code != SQLITE_DONE) {
        // A page that could not be understood stays in SQLite's cache until the next commit: the next try is
        // to read what is in the file then.
        sqlite3_db_release_memory(sqlite3_db_handle(statement));
    }
}

bool Rows::next() {
    code = sqlite3_step(statement);
    return code == SQLITE_ROW;
}

std::string_view Rows::text(int column) const {
    auto const* const bytes = static_cast<char const*>(sqlite3_column_blob(statement, column));
    return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement, column))};
}

std::optional<Value> Rows::value(int column) const {
    switch (sqlite3_column_type(statement, column)) {
    case SQLITE_INTEGER:
        return number(column);
    case SQLITE_TEXT:
        return Value{std::string{text(column)}};
    default:
        return std::nullopt;
    }
}

std::string Rows::description(int column) const {
    switch (sqlite3_column_type(statement, column)) {
    case SQLITE_NULL:
        return "NULL";
    case SQLITE_BLOB:
        return fmt::format("a blob of {} bytes", sqlite3_column_bytes(statement, column));
    case SQLITE_FLOAT:
        return fmt::format("the real number {}", sqlite3_column_double(statement, column));
    case SQLITE_INTEGER:
        return std::to_string(number(column));
    default:
        return printable(text(column));
    }
}

void Statement::bind(int index, std::int64_t number) const {
    sqlite3_bind_int64(handle.get(), index, number);
}

void Statement::bind(int index, std::string_view text) const {
    sqlite3_bind_text(handle.get(), index, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
}

void Statement::bind(int index, Value const& value) const {
    if (auto const* const text = std::get_if<std::string>(&value)) {
        bind(index, std::string_view{*text});
    } else {
        bind(index, std::get<std::int64_t>(value));
    }
}

core::Result<Connection> Connection::open(std::filesystem::path const& file, int flags) {
    sqlite3* opened = nullptr;
    int const code = sqlite3_open_v2(file.c_str(), &opened, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    Connection connection{file, Handle{opened}};
    if (code != SQLITE_OK) {
        return connection.failure(code);
    }
    if ((flags & SQLITE_OPEN_READWRITE) != 0 && sqlite3_db_readonly(opened, "main") != 0) {
        // SQLite goes on without the permission to write, and keeps the reason to itself.
        bool const refused = faccessat(AT_FDCWD, file.c_str(), W_OK, AT_EACCESS) != 0;
        return fail(Error::NoAccess, "{}: cannot be written ({})", file.string(),
                    std::generic_category().message(refused ? errno : EROFS));
    }
    sqlite3_busy_timeout(opened, patience_ms);
    return connection;
}

core::Result<Statement> Connection::prepare(char const* sql) const {
    sqlite3_stmt* statement = nullptr;
    int const code =
        sqlite3_prepare_v3(handle.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (code != SQLITE_OK) {
        return failure(code);
    }
    return Statement{statement};
}

core::Result<void> Connection::execute(char const* sql) const {
    int const code = sqlite3_exec(handle.get(), sql, nullptr, nullptr, nullptr);
    return code == SQLITE_OK ? core::Result<void>{core::success()} : failure(code);
}

core::Result<std::int64_t> Connection::number(char const* sql) const {
    OUTCOME_TRY(statement, prepare(sql));
    auto rows = statement.run();
    if (!rows.next()) {
        return failure(rows.result());
    }
    return rows.number(0);
}

void Connection::keep_log() const {
    int persist = 1;
    sqlite3_file_control(handle.get(), "main", SQLITE_FCNTL_PERSIST_WAL, &persist);
}

bool Connection::moved() const {
    int answer = 0;
    sqlite3_file_control(handle.get(), "main", SQLITE_FCNTL_HAS_MOVED, &answer);
    return answer != 0;
}

std::string Connection::reason(int code) const {
    switch (code & 0xFF) { // the primary code; the upper bits only tell variants apart
    case SQLITE_BUSY:
        return fmt::format("locked by another process for more than {} s", patience_ms / 1000);
    case SQLITE_CANTOPEN:
        return fmt::format("cannot be opened ({})",
                           std::generic_category().message(sqlite3_system_errno(handle.get())));
    case SQLITE_IOERR:
        return fmt::format("{} ({})", sqlite3_errmsg(handle.get()),
                           std::generic_category().message(sqlite3_system_errno(handle.get())));
    default:
        return sqlite3_errmsg(handle.get());
    }
}

core::ErrorPayload Connection::failure(int code) const {
    return fail(Error::CommonError, "{}: {}", file.string(), reason(code));
}

} // namespace xpon::cfgdb
