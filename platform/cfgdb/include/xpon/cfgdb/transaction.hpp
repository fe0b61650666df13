#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "core/result.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"
#include "xpon/cfgdb/settings.hpp"

namespace xpon::cfgdb {

/// A setting that a transaction changes, with its values as an operator writes them.
struct Change {
    Setting const* setting;
    std::string old_value;
    std::string new_value;
};

/// Who is changing something: the user of this process, behind sudo the one who called it.
std::string current_author();

class Connection;

/// Collects what is wanted and then writes all of it or nothing. Of two wishes for one setting the later
/// counts. One thread at a time.
class Transaction {
  public:
    /// Wants a value for every setting of a pattern; see `expand` and `parse`. Fails with `InvalidInputArg`,
    /// and then wants nothing more than before: no such setting, all of them built in, a value that is not
    /// allowed.
    core::Result<void> set(std::string_view pattern, std::string_view value);

    /// Wants the defaults.
    core::Result<void> reset(std::string_view pattern);

    /// Wants a value for one setting, but only if it then still has the value `from` (as an operator writes
    /// it): what somebody else has made of it meanwhile stays. Fails as `set` does.
    core::Result<void> put_back(std::string_view path, std::string_view from, std::string_view to);

    /// What `commit` would change now, in the order of `settings`; needs no permission to write. Fails as it
    /// does.
    core::Result<std::vector<Change>> preview(std::filesystem::path const& folder = default_folder) const;

    /// Writes what differs, with author, time and old value in the history, and the changed fields in the
    /// journal, which wakes every feed. Returns what was changed: where nothing differs, nothing is written
    /// and nobody woken. A database that does not exist is made. Waits at most 5 s for another writer. On
    /// failure nothing is changed: `InvalidInputArg` where two receivers would be the same or others than
    /// root may write the log file's folder, else what the database could not do.
    core::Result<std::vector<Change>> commit(std::filesystem::path const& folder = default_folder,
                                             std::string const& author = current_author()) const;

    /// The library's own: `before` says, inside the transaction, whether to go on; `after` adds to it.
    struct Hooks {
        // NOLINTBEGIN(readability-redundant-member-init): without them a partial initialiser is a warning
        std::function<core::Result<bool>(Connection const&)> before = {};
        std::function<core::Result<void>(Connection const&)> after = {};
        // NOLINTEND(readability-redundant-member-init)
    };
    core::Result<std::vector<Change>> commit(std::filesystem::path const& folder, std::string const& author,
                                             Hooks const& hooks) const;

  private:
    std::map<Setting const*, Value> wanted;
    std::map<Setting const*, std::string> only_from; // the values that some of them must have
};

/// A row that the database holds: a setting that differs from its default, if all is well.
struct StoredSetting {
    std::string path;       ///< as it is stored: not safe to print where there is no such setting
    Setting const* setting; ///< null if there is no such setting (or it is built in)
    bool allowed;           ///< the value is one that may be stored
    std::string value; ///< as an operator writes it; of one that is not allowed, a description safe to print
};

/// Every row, by path, as of one instant. The database must exist; reading permission is enough.
core::Result<std::vector<StoredSetting>>
stored_settings(std::filesystem::path const& folder = default_folder);

} // namespace xpon::cfgdb
