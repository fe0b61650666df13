#pragma once

#include <filesystem>
#include <memory>
#include <vector>

#include "core/result.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"
#include "xpon/cfgdb/config_change.hpp"

namespace xpon::cfgdb {

/// Hands out the changes that were committed after a position in the journal, none lost and none polled for.
/// One thread at a time.
class ChangeFeed {
  public:
    /// The feed that the newest CfgDbWrapper of this process prepared; null if there is none or it was taken.
    static std::unique_ptr<ChangeFeed> take();

    /// A feed of one's own, of what is committed from now on. The database must exist; reading permission is
    /// enough.
    static core::Result<std::unique_ptr<ChangeFeed>>
    open(std::filesystem::path const& folder = default_folder);

    virtual ~ChangeFeed() = default;

    /// Becomes readable when a commit may have happened, or when the database, its log or the log's index was
    /// replaced or removed; `next` makes it unreadable again.
    virtual int fd() const = 0;

    /// What was committed since the last call, oldest first, each field once; empty if nothing was. Never
    /// waits for a change. After an error the position is unchanged and the next call hands out the same
    /// again. If the journal no longer reaches back to the position, or the database is another one than it
    /// was (its files were replaced, a copy was restored into it), every field is handed out.
    virtual core::Result<std::vector<Config_change>> next() = 0;
};

} // namespace xpon::cfgdb
