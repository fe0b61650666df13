#pragma once

#include <filesystem>
#include <memory>

#include "core/result.hpp"
#include "core/unique_fd.hpp"
#include "store.hpp"

namespace xpon::cfgdb {

/// One writer's turn, step by step: `begin` takes SQLite's lock for writing; the writer checks what is there;
/// `prepare_to_write` comes before the first change; `commit` makes all changes visible; the end wakes the
/// feeds. Without a commit nothing has changed, and without `prepare_to_write` nobody is woken.
class Session {
  public:
    /// Creates the database if it does not exist. Waits at most 5 s for another writer.
    static core::Result<std::unique_ptr<Session>> begin(std::filesystem::path const& folder);

    ~Session() = default;
    Session(Session const&) = delete;
    Session& operator=(Session const&) = delete;

    Connection const& connection() const { return store->unshared(); }

    /// Opens the doorbell: from now on even a process that is killed rings it.
    core::Result<void> prepare_to_write();
    /// Nothing to do if nothing was prepared.
    core::Result<void> commit() const {
        return doorbell ? connection().execute("COMMIT") : core::Result<void>{core::success()};
    }

  private:
    Session(std::shared_ptr<Store> opened, std::filesystem::path in_folder);

    std::filesystem::path folder;
    std::shared_ptr<Store> store;
    core::UniqueFd doorbell; // outlives the transaction: it rings once all is visible
    Rollback rollback;
};

} // namespace xpon::cfgdb
