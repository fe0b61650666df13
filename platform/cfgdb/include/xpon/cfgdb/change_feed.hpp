#pragma once

#include <filesystem>
#include <memory>
#include <vector>

#include "core/result.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"
#include "xpon/cfgdb/config_change.hpp"

namespace xpon::cfgdb {

/// Returns the changes that were committed after a position in the journal. None is lost, and nothing polls.
/// One thread at a time.
class ChangeFeed {
  public:
    /// The feed prepared by the newest CfgDbWrapper of this process; null if there is none or it was taken.
    static std::unique_ptr<ChangeFeed> take();

    /// Puts a feed where `take` finds it, in the place of the one that is there.
    static void offer(std::unique_ptr<ChangeFeed> feed);

    /// A separate feed of what is committed from now on. The database must exist; permission to read is
    /// enough.
    static core::Result<std::unique_ptr<ChangeFeed>>
    open(std::filesystem::path const& folder = default_folder);

    virtual ~ChangeFeed() = default;

    /// Becomes readable when a commit may have happened, or when the database, its log or the log's index was
    /// replaced or removed; `next` makes it unreadable again.
    virtual int fd() const = 0;

    /// The fields changed since the last call, oldest first, each once; empty if there are none. Never waits.
    /// After an error the position is unchanged, and the next call returns the same changes again. Returns
    /// every field if the journal no longer contains the position, or if the database was replaced (by other
    /// files, or by a restore into it).
    virtual core::Result<std::vector<Config_change>> next() = 0;
};

} // namespace xpon::cfgdb
