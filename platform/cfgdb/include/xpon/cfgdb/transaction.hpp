#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/result.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"
#include "xpon/cfgdb/settings.hpp"

namespace xpon::cfgdb {

/// A setting that a transaction changes, with its values as an operator writes them. They are equal if it only
/// takes the setting out of a trial.
struct Change {
    Setting const* setting;
    std::string old_value;
    std::string new_value;
};

/// Who is behind this process.
struct Caller {
    std::string user;    ///< the name of its user
    std::string login;   ///< who has logged in, whatever su and sudo have made of that; empty if unknown
    std::string by_sudo; ///< who has called sudo; empty if nobody has

    static Caller current();

    /// The person, as far as it is known.
    std::string author() const;
    /// The accounts that the person has used, such as "netops, root"; empty if it was the person's own.
    std::string accounts() const;
};

/// The author of a change that this process makes.
std::string current_author();

class Session;

/// Collects changes and then writes all of them or none. The last value given for a setting wins. One thread
/// at a time.
class Transaction {
  public:
    /// Adds a value for every setting that matches a pattern; see `expand` and `parse`. Fails with
    /// `InvalidInputArg`, and then adds nothing, if no setting matches, all of them are built in, or the
    /// value is not allowed.
    core::Result<void> set(std::string_view pattern, std::string_view value);

    /// Adds the defaults.
    core::Result<void> reset(std::string_view pattern);

    /// Adds a value for one setting, to be written only if the setting then still has the value `from` (as an
    /// operator writes it). A later change by somebody else is therefore kept. Fails as `set` does.
    core::Result<void> put_back(std::string_view path, std::string_view from, std::string_view to);

    /// The same, whatever the setting's value is then.
    core::Result<void> put_back(std::string_view path, std::string_view to);

    /// For the history: how the settings are changed ("set" unless given), and why.
    void describe(std::string_view how, std::string_view why) {
        kind = how;
        comment = why;
    }

    /// What `commit` would change now, in the order of `settings`. Needs no write permission. Fails as
    /// `commit` does.
    core::Result<std::vector<Change>> preview(std::filesystem::path const& folder = default_folder) const;

    /// Writes the settings that differ. Author, time and old value go to the history; the changed fields go
    /// to the journal, which wakes every feed. A setting that is on trial leaves its trial, also if it already
    /// has the value. Returns the changes. If there are none, nothing is written and no feed is woken. Creates the database if it does not exist. Waits at most 5 s for another writer.
    /// On failure nothing changes: `InvalidInputArg` if two receivers would be the same or users other than
    /// root may write to the log file's folder; otherwise the error of the database.
    core::Result<std::vector<Change>> commit(std::filesystem::path const& folder = default_folder,
                                             std::string const& author = current_author()) const;

    /// The fields of the settings that were named, whether they differ or not, in the order of `settings`.
    std::vector<std::uint32_t> fields() const;

    // For the library's own use: what a session would change now, and doing it, without the commit.
    core::Result<std::vector<Change>> plan(Session const& session) const;
    core::Result<std::vector<Change>> write(Session& session, std::string const& author) const;

  private:
    core::Result<void> put_back_from(std::string_view path, std::optional<std::string> from,
                                     std::string_view to);

    std::map<Setting const*, Value> wanted;
    std::map<Setting const*, std::optional<std::string>> earlier; // values put back, and from what alone
    std::string kind = "set";
    std::string comment;
};

/// Enters fields in the journal though nothing has changed, so that every feed hands them out again. Neither
/// the settings nor the history change. Creates the database, waits and fails as `Transaction::commit` does.
core::Result<void> deliver_again(std::span<std::uint32_t const> fields,
                                 std::filesystem::path const& folder = default_folder);

/// Removes a stored row that is no setting, by its exact path; false if there is none. It is not in the
/// history, and nobody is told: no program has used it.
core::Result<bool> remove_stray_row(std::string_view path,
                                    std::filesystem::path const& folder = default_folder);

/// Decides what a killed writer has left. One that dies at the very end of its commit has written everything
/// but not announced it: its changes stay unseen, and appear when the database is next opened after everybody
/// has closed it, or never, if somebody else writes before. After this they are there, or never will be.
core::Result<void> settle(std::filesystem::path const& folder = default_folder);

/// One stored row. Normally it is a setting that differs from its default.
struct StoredSetting {
    std::string path;       ///< as stored; not safe to print if `setting` is null
    Setting const* setting; ///< null if there is no such setting (or it is built in)
    bool allowed;           ///< the value is allowed
    std::string value;      ///< as an operator writes it; if not allowed, a description that is safe to print
};

/// Every row, ordered by path, as of one instant. The database must exist; permission to read is enough.
core::Result<std::vector<StoredSetting>>
stored_settings(std::filesystem::path const& folder = default_folder);

} // namespace xpon::cfgdb
