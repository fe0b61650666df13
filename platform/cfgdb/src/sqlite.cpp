#include "sqlite.hpp"

#include <algorithm>
#include <cerrno>
#include <iterator>

#include <fcntl.h>
#include <unistd.h>

#include "core/failure.hpp"
#include "core/reason.hpp"
#include "xpon/cfgdb/printable.hpp"

namespace xpon::cfgdb {

using core::Error;
using core::fail;

namespace {

/// The meaning of extended codes that do not come from a failed system call. The last error number of the
/// system, if any, then belongs to something else.
struct Meaning {
    int code;
    char const* words;
};

constexpr Meaning not_of_the_system[] = {
    {SQLITE_IOERR_SHORT_READ, "a file ends before the data that should be in it"},
    {SQLITE_IOERR_NOMEM, "out of memory"},
    {SQLITE_IOERR_CORRUPTFS, "the file system is damaged"},
    {SQLITE_CANTOPEN_NOTEMPDIR, "no folder for temporary files"},
    {SQLITE_CANTOPEN_DIRTYWAL, "its log has to be recovered first"},
};

std::string system_reason(int code, int error_number) {
    auto const* const known = std::ranges::find(not_of_the_system, code, &Meaning::code);
    if (known != std::end(not_of_the_system)) {
        return known->words;
    }
    return error_number != 0 ? core::reason_of(error_number) : fmt::format("SQLite's error {}", code);
}

} // namespace

Rows::~Rows() {
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
    if (code != SQLITE_OK && code != SQLITE_ROW && code != SQLITE_DONE) {
        // A damaged page stays in SQLite's cache until the next commit; the next try must read the file.
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

bool RunLimit::exceeded() {
    auto const now = Clock::now();
    if (!end) {
        end = now + limit;
    }
    return now >= *end;
}

core::Result<Connection> Connection::open(std::filesystem::path const& file, int flags) {
    return open_named(file, file.string(), flags);
}

core::Result<Connection> Connection::open_unchanging(std::filesystem::path const& file) {
    std::string name = "file:";
    for (char const c : file.string()) {
        name += c == '%' || c == '?' || c == '#' ? fmt::format("%{:02x}", static_cast<unsigned char>(c))
                                                 : std::string{c};
    }
    return open_named(file, name + "?immutable=1", SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
}

core::Result<Connection> Connection::open_named(std::filesystem::path const& file, std::string const& name,
                                                int flags) {
    sqlite3* opened = nullptr;
    int const code = sqlite3_open_v2(name.c_str(), &opened, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    Connection connection{file, Handle{opened}};
    if (code != SQLITE_OK) {
        return connection.failure(sqlite3_extended_errcode(opened));
    }
    sqlite3_extended_result_codes(opened, 1);
    constexpr int steps_between_questions = 10000; // well below a millisecond
    auto const too_long = [](void* limit) { return static_cast<RunLimit*>(limit)->exceeded() ? 1 : 0; };
    sqlite3_progress_handler(opened, steps_between_questions, too_long, connection.limit.get());
    if ((flags & SQLITE_OPEN_READWRITE) != 0 && sqlite3_db_readonly(opened, "main") != 0) {
        // Without write permission SQLite continues read-only and does not say why.
        bool const refused = faccessat(AT_FDCWD, file.c_str(), W_OK, AT_EACCESS) != 0;
        return fail(Error::NoAccess, "{}: cannot be written ({})", file.string(),
                    core::reason_of(refused ? errno : EROFS));
    }
    sqlite3_busy_timeout(opened, patience_ms);
    return connection;
}

core::Result<Statement> Connection::prepare(char const* sql) const {
    limit->restart(); // it may read the schema
    sqlite3_stmt* statement = nullptr;
    int const code =
        sqlite3_prepare_v3(handle.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (code != SQLITE_OK) {
        return failure(code);
    }
    return Statement{statement, *limit};
}

core::Result<void> Connection::execute(char const* sql) const {
    limit->restart();
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

core::Result<void> Connection::check_end(Rows const& rows) const {
    return rows.result() == SQLITE_DONE ? core::Result<void>{core::success()} : failure(rows.result());
}

void Connection::keep_log() const {
    int persist = 1;
    sqlite3_file_control(handle.get(), "main", SQLITE_FCNTL_PERSIST_WAL, &persist);
}

void Connection::empty_log_at_close(bool wanted) const {
    sqlite3_db_config(handle.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, wanted ? 0 : 1, nullptr);
}

void Connection::forget_pages() const {
    sqlite3_db_release_memory(handle.get());
}

std::string Connection::reason(int code) const {
    switch (code & 0xFF) { // the primary code; the upper bits only tell variants apart
    case SQLITE_BUSY:
        return fmt::format("locked by another process for more than {} s", patience_ms / 1000);
    case SQLITE_INTERRUPT:
        return fmt::format("a query was ended after {} s: the database is far too large, or a view in it "
                           "never ends",
                           limit->get().count());
    case SQLITE_CANTOPEN:
        return fmt::format("cannot be opened ({})", system_reason(code, sqlite3_system_errno(handle.get())));
    case SQLITE_IOERR:
        return fmt::format("disk I/O error ({})", system_reason(code, sqlite3_system_errno(handle.get())));
    default:
        return plain(sqlite3_errmsg(handle.get()));
    }
}

core::ErrorPayload Connection::failure(int code) const {
    return fail(Error::CommonError, "{}: {}", file.string(), reason(code));
}

} // namespace xpon::cfgdb
