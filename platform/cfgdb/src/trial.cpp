#include "xpon/cfgdb/trial.hpp"

#include <ctime>
#include <fstream>

#include "core/failure.hpp"
#include "session.hpp"
#include "xpon/cfgdb/history.hpp"
#include "xpon/cfgdb/printable.hpp"

namespace xpon::cfgdb {

namespace {

using core::Error;
using core::fail;

/// Empty where it cannot be read, as in a unit that sees only the processes in /proc.
std::string current_boot() {
    std::string boot;
    std::ifstream{"/proc/sys/kernel/random/boot_id"} >> boot;
    return boot;
}

std::int64_t seconds_since_boot() {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return now.tv_sec;
}

core::Result<std::optional<Trial>> pending(Connection const& connection) {
    OUTCOME_TRY(tables, connection.number("SELECT count(*) FROM sqlite_master WHERE name = 'trial'"));
    if (tables == 0) {
        return std::optional<Trial>{};
    }
    OUTCOME_TRY(statement, connection.prepare("SELECT number, boot, until, author FROM trial"));
    auto rows = statement.run();
    if (rows.next()) {
        return std::optional{Trial{rows.number(0), {safe(rows.text(1)), rows.number(2)}, safe(rows.text(3))}};
    }
    if (rows.result() != SQLITE_DONE) {
        return connection.failure(rows.result());
    }
    return std::optional<Trial>{};
}

/// Ends the pending trial, whose changes stay.
core::Result<void> forget_trial_and_commit(Session& session) {
    OUTCOME_TRY(session.prepare_to_write());
    OUTCOME_TRY(session.connection().execute("DELETE FROM trial"));
    return session.commit();
}

} // namespace

BootInstant BootInstant::in(std::int64_t seconds) {
    return {current_boot(), seconds_since_boot() + seconds};
}

bool BootInstant::over() const {
    auto const current = current_boot();
    bool const both_known = !boot.empty() && !current.empty();
    return (both_known && boot != current) || seconds_since_boot() >= seconds;
}

core::Result<std::optional<Trial>> pending_trial(std::filesystem::path const& folder) {
    OUTCOME_TRY(store, Store::open({}, folder, Store::Access::Read));
    return pending(store->unshared());
}

core::Result<std::vector<Change>> commit_trial(Transaction const& transaction, BootInstant const& end,
                                               std::filesystem::path const& folder,
                                               std::string const& author) {
    OUTCOME_TRY(session, Session::begin(folder));
    auto const& connection = session->connection();
    OUTCOME_TRY(other, pending(connection));
    if (other) {
        return fail(Error::Already, "transaction {} of {} waits for its confirmation", other->number,
                    other->author);
    }
    OUTCOME_TRY(changes, transaction.write(*session, author));
    if (!changes.empty()) {
        OUTCOME_TRY(number, connection.number("SELECT max(number) FROM history"));
        OUTCOME_TRY(remember, connection.prepare("INSERT INTO trial VALUES(?1, ?2, ?3, ?4)"));
        OUTCOME_TRY(connection.change(remember, number, std::string_view{end.boot}, end.seconds,
                                      std::string_view{author}));
        OUTCOME_TRY(session->commit());
    }
    return std::move(changes);
}

core::Result<Trial> confirm_trial(std::filesystem::path const& folder) {
    OUTCOME_TRY(session, Session::begin(folder));
    OUTCOME_TRY(trial, pending(session->connection()));
    if (!trial) {
        return fail(Error::Empty, "nothing waits for a confirmation");
    }
    OUTCOME_TRY(forget_trial_and_commit(*session));
    return *std::move(trial);
}

core::Result<std::vector<Change>> undo_trial(std::int64_t number, std::filesystem::path const& folder,
                                             std::string const& author) {
    OUTCOME_TRY(entries, history(folder, number - 1));
    Transaction back;
    for (auto const& entry : entries) {
        auto const* const setting = find_setting(entry.path);
        if (entry.number != number || setting == nullptr) {
            continue;
        }
        // What was stored by other means need not be allowed, and is not put back then.
        auto const before = parse(*setting, entry.old_value).has_value()
                                ? entry.old_value
                                : to_text(setting->kind, setting->default_value);
        OUTCOME_TRY(back.put_back(entry.path, entry.new_value, before));
    }
    OUTCOME_TRY(session, Session::begin(folder));
    OUTCOME_TRY(trial, pending(session->connection()));
    if (!trial || trial->number != number) {
        return std::vector<Change>{};
    }
    OUTCOME_TRY(changes, back.write(*session, author));
    OUTCOME_TRY(forget_trial_and_commit(*session));
    return std::move(changes);
}

} // namespace xpon::cfgdb
