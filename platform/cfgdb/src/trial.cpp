#include "xpon/cfgdb/trial.hpp"

#include <algorithm>
#include <ctime>
#include <fstream>
#include <iterator>
#include <map>
#include <utility>

#include "core/failure.hpp"
#include "session.hpp"
#include "xpon/cfgdb/printable.hpp"

namespace xpon::cfgdb {

namespace {

using core::Error;
using core::fail;

/// Empty if it cannot be read, as in a unit with ProcSubset=pid.
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

/// What a program of the first release has left; the next writer takes it over.
core::Result<std::vector<Trial>> pending_of_the_first_release(Connection const& connection) {
    std::vector<Trial> trials;
    OUTCOME_TRY(there, has_table(connection, "trial"));
    if (there) {
        OUTCOME_TRY(statement, connection.prepare("SELECT number, author, boot, until FROM trial"));
        auto rows = statement.run();
        while (rows.next()) {
            trials.push_back(
                {rows.number(0), safe(rows.text(1)), {{safe(rows.text(2)), rows.number(3)}}, {}});
        }
        OUTCOME_TRY(connection.check_end(rows));
    }
    return trials;
}

core::Result<std::vector<OnTrial>> settings_of(std::int64_t number, Connection const& connection) {
    OUTCOME_TRY(statement,
                connection.prepare("SELECT path, back FROM on_trial WHERE number = ?1 ORDER BY path"));
    std::vector<OnTrial> settings;
    auto rows = statement.run(number);
    while (rows.next()) {
        settings.push_back({safe(rows.text(0)), safe(rows.text(1))});
    }
    OUTCOME_TRY(connection.check_end(rows));
    return settings;
}

core::Result<std::vector<Trial>> pending(Connection const& connection) {
    OUTCOME_TRY(there, has_table(connection, "pending"));
    if (!there) {
        return pending_of_the_first_release(connection);
    }
    OUTCOME_TRY(statement, connection.prepare("SELECT number, author, boot, until, temporary, timer "
                                              "FROM pending ORDER BY number"));
    std::vector<Trial> trials;
    auto rows = statement.run();
    while (rows.next()) {
        OUTCOME_TRY(settings, settings_of(rows.number(0), connection));
        trials.push_back({rows.number(0),
                          safe(rows.text(1)),
                          {{safe(rows.text(2)), rows.number(3)}, rows.number(4) != 0, safe(rows.text(5))},
                          std::move(settings)});
    }
    OUTCOME_TRY(connection.check_end(rows));
    return trials;
}

core::Result<Trial> find(std::int64_t number, Connection const& connection) {
    OUTCOME_TRY(trials, pending(connection));
    auto const found = std::ranges::find(trials, number, &Trial::number);
    if (found == trials.end()) {
        return fail(Error::Empty, "no trial {} is pending; see: logctl trials", number);
    }
    return std::move(*found);
}

core::Result<Trial> find_in_time(std::int64_t number, Connection const& connection) {
    OUTCOME_TRY(trial, find(number, connection));
    if (trial.terms.end.over()) {
        return fail(Error::InvalidState, "the time of trial {} is over", number);
    }
    return std::move(trial);
}

/// The trial is over; its settings stay.
core::Result<void> forget(std::int64_t number, Session& session) {
    OUTCOME_TRY(session.prepare_to_write());
    auto const& connection = session.connection();
    for (char const* const rows :
         {"DELETE FROM on_trial WHERE number = ?1", "DELETE FROM pending WHERE number = ?1"}) {
        OUTCOME_TRY(statement, connection.prepare(rows));
        OUTCOME_TRY(connection.change(statement, number));
    }
    return core::success();
}

/// Settings that must be put back together: an address without its port makes a third receiver.
std::string unit_of(OnTrial const& setting) {
    constexpr std::string_view receivers = "syslog.remote.";
    return setting.path.starts_with(receivers) ? setting.path.substr(0, setting.path.rfind('.')) : "";
}

/// Adds what puts this back. A value that another program stored may not be allowed; then it is the default.
core::Result<void> put_back(OnTrial const& on_trial, Transaction& to) {
    auto const& setting = *find_setting(on_trial.path);
    return to.put_back(setting.path, parse(setting, on_trial.before).has_value()
                                         ? on_trial.before
                                         : to_text(setting.kind, setting.default_value));
}

/// Whether this can be done; fails if the database cannot tell.
core::Result<bool> is_possible(Transaction const& transaction, Session const& session) {
    auto const planned = transaction.plan(session);
    if (planned.has_error() && planned.error().error != Error::InvalidInputArg) {
        return planned.error();
    }
    return planned.has_value();
}

struct WayBack {
    Transaction transaction;
    std::vector<std::string> left; ///< paths that it does not put back
};

/// Puts back as much as possible of these settings.
core::Result<WayBack> way_back(std::vector<OnTrial> const& settings, Session const& session) {
    WayBack way;
    std::map<std::string, std::vector<OnTrial>> units;
    Transaction whole;
    for (auto const& setting : settings) {
        auto const* const known = find_setting(setting.path);
        if (known == nullptr || known->built_in()) { // of another release
            way.left.push_back(setting.path);
            continue;
        }
        units[unit_of(setting)].push_back(setting);
        OUTCOME_TRY(put_back(setting, whole));
    }
    // Receivers that have changed places go back only together.
    OUTCOME_TRY(all_at_once, is_possible(whole, session));
    if (all_at_once) {
        way.transaction = std::move(whole);
        return way;
    }
    // Each one that goes back may make room for another.
    for (std::size_t before = 0; units.size() != before;) {
        before = units.size();
        for (auto unit = units.begin(); unit != units.end();) {
            auto more = way.transaction;
            for (auto const& setting : unit->second) {
                OUTCOME_TRY(put_back(setting, more));
            }
            OUTCOME_TRY(fits, is_possible(more, session));
            if (fits) {
                way.transaction = std::move(more);
            }
            unit = fits ? units.erase(unit) : std::next(unit);
        }
    }
    for (auto const& [_, some] : units) {
        std::ranges::transform(some, std::back_inserter(way.left), &OnTrial::path);
    }
    return way;
}

core::Result<EndedTrial> undo(Trial trial, Session& session, std::string const& author,
                              std::string_view how) {
    OUTCOME_TRY(forget(trial.number, session));
    OUTCOME_TRY(way, way_back(trial.settings, session));
    auto& [back, left] = way;
    back.describe(fmt::format("trial {} {}", trial.number, how),
                  left.empty() ? "" : fmt::format("cannot be put back: {}", fmt::join(left, ", ")));
    OUTCOME_TRY(changes, back.write(session, author));
    OUTCOME_TRY(session.commit());
    return EndedTrial{std::move(trial), std::move(changes), std::move(left)};
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

std::int64_t BootInstant::left() const {
    return over() ? 0 : seconds - seconds_since_boot();
}

core::Result<std::vector<Trial>> pending_trials(std::filesystem::path const& folder) {
    OUTCOME_TRY(store, Store::open({}, folder, Store::Access::Read));
    OUTCOME_TRY(store->unshared().execute("BEGIN"));
    Rollback const one_state{store->unshared()};
    return pending(store->unshared());
}

core::Result<StartedTrial> commit_trial(Transaction const& transaction, TrialTerms const& terms,
                                        std::filesystem::path const& folder, std::string const& author) {
    OUTCOME_TRY(session, Session::begin(folder));
    auto const& connection = session->connection();
    OUTCOME_TRY(others, pending(connection));
    OUTCOME_TRY(changes, transaction.write(*session, author));
    for (auto const& other : others) {
        for (auto const& change : changes) {
            if (std::ranges::count(other.settings, change.setting->path, &OnTrial::path) > 0) {
                return fail(Error::Already,
                            "{0}: on trial {1} of {2}; end that first: logctl confirm {1} or "
                            "logctl abort {1}",
                            change.setting->path, other.number, other.author);
            }
        }
    }
    if (changes.empty()) {
        return StartedTrial{};
    }
    OUTCOME_TRY(number, connection.number("SELECT max(number) FROM history"));
    OUTCOME_TRY(remember, connection.prepare("INSERT INTO pending(number, boot, until, author, temporary, "
                                             "timer) VALUES(?1, ?2, ?3, ?4, ?5, ?6)"));
    OUTCOME_TRY(connection.change(remember, number, std::string_view{terms.end.boot}, terms.end.seconds,
                                  std::string_view{author}, std::int64_t{terms.temporary},
                                  std::string_view{terms.timer}));
    OUTCOME_TRY(put_on_trial,
                connection.prepare("INSERT INTO on_trial(path, number, back) VALUES(?1, ?2, ?3)"));
    for (auto const& change : changes) {
        OUTCOME_TRY(connection.change(put_on_trial, std::string_view{change.setting->path}, number,
                                      std::string_view{change.old_value}));
    }
    OUTCOME_TRY(session->commit());
    return StartedTrial{number, std::move(changes)};
}

core::Result<Trial> confirm_trial(std::int64_t number, std::filesystem::path const& folder,
                                  std::string const& author) {
    OUTCOME_TRY(session, Session::begin(folder));
    auto const& connection = session->connection();
    OUTCOME_TRY(trial, find_in_time(number, connection));
    OUTCOME_TRY(forget(number, *session));
    OUTCOME_TRY(note, connection.prepare("UPDATE transaction_note SET kind = kind || ', confirmed by ' || ?2 "
                                         "WHERE number = ?1"));
    OUTCOME_TRY(connection.change(note, number, std::string_view{author}));
    OUTCOME_TRY(session->commit());
    return std::move(trial);
}

core::Result<Trial> extend_trial(std::int64_t number, BootInstant const& end, std::string const& timer,
                                 std::filesystem::path const& folder) {
    OUTCOME_TRY(session, Session::begin(folder));
    auto const& connection = session->connection();
    OUTCOME_TRY(trial, find_in_time(number, connection));
    OUTCOME_TRY(session->prepare_to_write());
    OUTCOME_TRY(change, connection.prepare("UPDATE pending SET boot = ?2, until = ?3, timer = ?4 "
                                           "WHERE number = ?1"));
    OUTCOME_TRY(
        connection.change(change, number, std::string_view{end.boot}, end.seconds, std::string_view{timer}));
    OUTCOME_TRY(session->commit());
    return std::move(trial);
}

core::Result<EndedTrial> abort_trial(std::int64_t number, std::filesystem::path const& folder,
                                     std::string const& author) {
    OUTCOME_TRY(session, Session::begin(folder));
    OUTCOME_TRY(trial, find(number, session->connection()));
    return undo(std::move(trial), *session, author, "aborted");
}

core::Result<EndedTrial> end_overdue_trial(std::int64_t number, std::filesystem::path const& folder) {
    OUTCOME_TRY(session, Session::begin(folder));
    OUTCOME_TRY(trial, find(number, session->connection()));
    if (!trial.terms.end.over()) {
        return fail(Error::InvalidState, "the time of trial {} is not over", number);
    }
    auto const author = trial.author;
    return undo(std::move(trial), *session, author, "undone");
}

} // namespace xpon::cfgdb
