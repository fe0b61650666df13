#include "xpon/cfgdb/backup.hpp"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/failure.hpp"
#include "core/unique_fd.hpp"
#include "files.hpp"
#include "record.hpp"
#include "store.hpp"
#include "xpon/cfgdb/log_folder.hpp"
#include "xpon/cfgdb/printable.hpp"

namespace xpon::cfgdb {

namespace {

using core::Error;
using core::fail;

/// Replaces the contents of one database with those of another in one transaction; returns SQLite's code.
int copy(Connection const& from, Connection const& to) {
    auto* const running = sqlite3_backup_init(to.raw(), "main", from.raw(), "main");
    if (running == nullptr) {
        return sqlite3_extended_errcode(to.raw());
    }
    constexpr int all_pages = -1;
    int const copied = sqlite3_backup_step(running, all_pages);
    int const finished = sqlite3_backup_finish(running);
    return copied == SQLITE_DONE ? finished : copied;
}

/// Whether the code says that a database is too damaged to be written.
bool is_damage(int code) {
    return (code & 0xFF) == SQLITE_CORRUPT || (code & 0xFF) == SQLITE_NOTADB;
}

/// Fails if a copy must not be written to, or read from, this file.
core::Result<void> check_file(std::filesystem::path const& file, std::filesystem::path const& folder,
                              bool must_exist) {
    struct stat status{};
    if (stat(file.c_str(), &status) != 0) {
        int const reason = errno;
        return must_exist || reason != ENOENT ? system_failure(file, "cannot be opened", reason)
                                              : core::Result<void>{core::success()};
    }
    if (!S_ISREG(status.st_mode)) {
        return fail(Error::InvalidInputArg, "{}: not a regular file", file.string());
    }
    auto const running = identities(database_path(folder));
    for (auto const& [device, inode] : {running.database, running.log, running.index}) {
        if (device == status.st_dev && inode == status.st_ino) {
            return fail(Error::InvalidInputArg, "{}: is the database itself; name another file",
                        file.string());
        }
    }
    return core::success();
}

core::Result<void> fill_copy(Connection const& from, std::filesystem::path const& file) {
    OUTCOME_TRY(to, Connection::open(file, SQLITE_OPEN_READWRITE));
    if (int const code = copy(from, to); code != SQLITE_OK) {
        return to.failure(code);
    }
    // One file without a log, readable even where nothing can be written.
    return to.execute("PRAGMA journal_mode = DELETE");
}

/// Opens a copy without creating files beside it.
core::Result<Connection> open_copy(std::filesystem::path const& file) {
    std::error_code none;
    auto const log_size = std::filesystem::file_size(log_path(file), none);
    if (!none && log_size > 0) {
        return Connection::open(file, SQLITE_OPEN_READONLY); // the log belongs to it
    }
    return Connection::open_unchanging(file);
}

core::Result<void> check_integrity(Connection const& connection) {
    OUTCOME_TRY(check, connection.prepare("PRAGMA integrity_check(1)"));
    auto rows = check.run();
    if (!rows.next()) {
        return connection.failure(rows.result());
    }
    if (rows.text(0) != "ok") {
        return fail(Error::InvalidState, "{}: damaged: {}", connection.path().string(), plain(rows.text(0)));
    }
    return core::success();
}

core::Result<void> check_values(Connection const& connection) {
    auto const* const log_folder = find_setting("syslog.file.path");
    auto remote = syslog_record(remote_field).defaults;
    std::string wrong;
    OUTCOME_TRY(each_row(connection, [&](auto path, auto const* setting, StoredRow const& stored) {
        if (setting == nullptr || !wrong.empty()) {
            return; // a row of another release does no harm
        }
        if (!stored.value) {
            wrong = fmt::format("{}: {}", path, wrongly_stored(stored.text, setting->kind));
        } else if (setting == log_folder) {
            auto const& value = std::get<std::string>(*stored.value);
            if (auto const flaw = log_folder_flaw(value)) {
                wrong = fmt::format("{}: {} is not safe for the log file: {}", path, value, *flaw);
            }
        } else if (setting->field_id == remote_field) {
            put(*setting, *stored.value, remote);
        }
    }));
    if (wrong.empty()) {
        wrong = contradiction(syslog_record(remote_field), remote).value_or("");
    }
    return wrong.empty() ? core::Result<void>{core::success()}
                         : fail(Error::InvalidState, "{}: {}", connection.path().string(), wrong);
}

/// Fails unless the copy can replace the database.
core::Result<void> check_copy(Connection const& connection) {
    // The check of a large copy takes time. Views, which may never end, are refused before it.
    connection.set_run_limit(std::chrono::seconds{60});
    OUTCOME_TRY(check_schema(connection));
    OUTCOME_TRY(check_integrity(connection));
    for (char const* const needed : {"SELECT sequence, field_id, at FROM journal",
                                     "SELECT entry, number, at, author, path, old, new FROM history"}) {
        OUTCOME_TRY(connection.prepare(needed));
    }
    return check_values(connection);
}

} // namespace

core::Result<void> backup(std::filesystem::path const& file, std::filesystem::path const& folder) {
    OUTCOME_TRY(check_file(file, folder, false));
    OUTCOME_TRY(store, Store::open({}, folder, Store::Access::Read));
    auto temporary = file.string() + ".XXXXXX";
    core::UniqueFd made{mkostemp(temporary.data(), O_CLOEXEC)};
    if (!made) {
        return system_failure(file, "cannot be made", errno);
    }
    made.reset();
    auto const written = [&]() -> core::Result<void> {
        OUTCOME_TRY(fill_copy(store->unshared(), temporary));
        if (std::rename(temporary.c_str(), file.c_str()) != 0) {
            return system_failure(file, "cannot be made", errno);
        }
        sync_folder(file.has_parent_path() ? file.parent_path() : ".");
        return core::success();
    }();
    if (written.has_error()) {
        unlink(temporary.c_str());
    }
    return written;
}

core::Result<void> restore(std::filesystem::path const& file, std::filesystem::path const& folder) {
    OUTCOME_TRY(check_file(file, folder, true));
    OUTCOME_TRY(from, open_copy(file));
    OUTCOME_TRY(from.execute("BEGIN")); // what is checked is what is copied
    OUTCOME_TRY(check_copy(from));
    OUTCOME_TRY(make_database(folder));
    // Opened before anything is written: if the process is killed after the commit, the kernel closes it.
    OUTCOME_TRY(opened, open_doorbell(folder));
    core::UniqueFd const rings_at_the_end{std::move(opened)};
    auto const path = database_path(folder);
    // An emptied file cannot be written either: whoever has it open since it was a database holds a lock on it.
    std::error_code unknown;
    if (std::filesystem::file_size(path, unknown) != 0) {
        OUTCOME_TRY(to, open_database(path, Store::Access::Write));
        int const code = copy(from, to);
        if (code == SQLITE_OK) {
            // The contents are restored; if this fails, the next writer does it.
            std::ignore = settle_as_writer(to);
            return core::success();
        }
        if (!is_damage(code)) {
            return to.failure(code);
        }
    }
    OUTCOME_TRY(locked, take_turns(folder));
    core::UniqueFd const turn{std::move(locked)};
    auto const fill = [&](std::filesystem::path const& temporary) -> core::Result<void> {
        OUTCOME_TRY(fill_copy(from, temporary));
        remove_log(path); // that of the damaged one
        return core::success();
    };
    return make_file(path, fill, Existing::Replace);
}

} // namespace xpon::cfgdb
