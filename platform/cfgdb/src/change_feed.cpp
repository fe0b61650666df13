#include "xpon/cfgdb/change_feed.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <utility>

#include <sys/inotify.h>

#include "core/failure.hpp"
#include "core/reason.hpp"
#include "core/unique_fd.hpp"
#include "files.hpp"
#include "store.hpp"

namespace xpon::cfgdb {

namespace {

using core::Error;
using core::fail;

class JournalFeed : public ChangeFeed {
  public:
    JournalFeed(std::shared_ptr<Store const> opened, std::filesystem::path const& in_folder)
      : store{std::move(opened)}
      , folder{in_folder} {}

    core::Result<void> start() {
        if (!inotify) {
            return fail(Error::CommonError, "{}: cannot create an inotify instance ({})",
                        store->path().string(), core::reason_of(errno));
        }
        OUTCOME_TRY(watch());
        OUTCOME_TRY(now, store->journal_from({}));
        remember(now);
        return core::success();
    }

    int fd() const override { return inotify.get(); }

    // Events are taken before reading: a commit after the reading then still wakes the feed.
    core::Result<std::vector<Config_change>> next() override {
        drain();
        if (!watching) {
            OUTCOME_TRY(watch());
        }
        // The entry at the position is read again: if it has been pruned, later ones may have been too.
        OUTCOME_TRY(now, store->journal_from(position));
        auto const& entries = now.entries;
        bool const reaches_back = position == 0 ? entries.empty() || entries.front().sequence == 1
                                                : !entries.empty() && entries.front().sequence == position;
        if (reaches_back && now.content == content) {
            auto changes = changes_in(entries);
            remember(now);
            return changes;
        }
        OUTCOME_TRY(newest, store->journal_from({}));
        remember(newest);
        return every_field();
    }

  private:
    void remember(Journal const& handed_out) {
        content = handed_out.content;
        position = handed_out.entries.empty() ? 0 : handed_out.entries.back().sequence;
    }

    core::Result<void> watch() {
        auto watched = watch_files();
        if (watched.has_error() && !std::filesystem::exists(folder)) {
            // Watch the nearest existing folder above, to notice when it comes back.
            auto above = folder;
            do {
                above = above.parent_path();
            } while (above.has_relative_path() && !std::filesystem::exists(above));
            std::ignore =
                inotify_add_watch(inotify.get(), above.c_str(), IN_CREATE | IN_MOVED_TO | IN_ONLYDIR);
            watched = watch_files(); // it may have come back meanwhile
        }
        return watched;
    }

    /// Watches the files that exist now. Opening the database or the doorbell for reading wakes nobody.
    core::Result<void> watch_files() {
        struct Watched {
            std::filesystem::path path;
            std::uint32_t events;
        };
        // The folder reports files that are created, replaced or removed. Closing the database ends a restore
        // by another program, which does not use the doorbell.
        Watched const all[] = {
            {folder, IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF |
                         IN_ONLYDIR},
            {doorbell_path(folder), IN_CLOSE_WRITE},
            {database_path(folder), IN_CLOSE_WRITE},
        };
        for (auto const& [path, events] : all) {
            bool const added = inotify_add_watch(inotify.get(), path.c_str(), events) >= 0;
            if (!added && (errno != ENOENT || path == folder)) {
                return fail(Error::CommonError, "{}: cannot be watched ({})", path.string(),
                            core::reason_of(errno));
            }
        }
        watching = true;
        return core::success();
    }

    /// Reads the events. Any but a close may mean that other files must be watched now.
    void drain() {
        alignas(inotify_event) std::array<char, 4096> buffer;
        for (ssize_t length = 0; (length = read(inotify.get(), buffer.data(), buffer.size())) > 0;) {
            inotify_event event{};
            for (ssize_t at = 0; at < length; at += static_cast<ssize_t>(sizeof event + event.len)) {
                std::memcpy(&event, buffer.data() + at, sizeof event);
                watching = watching && event.mask == IN_CLOSE_WRITE;
            }
        }
    }

    std::vector<Config_change> changes_in(std::vector<JournalEntry> const& entries) const {
        std::vector<Config_change> changes;
        for (auto const& entry : entries) {
            if (entry.sequence != position &&
                std::ranges::find(changes, entry.field_id, &Config_change::field_id) == changes.end()) {
                changes.push_back({entry.field_id, 0, static_cast<std::uint32_t>(entry.sequence)});
            }
        }
        return changes;
    }

    std::vector<Config_change> every_field() const {
        std::vector<Config_change> changes;
        for (auto const& record : records()) {
            if (record.field_id != 0) {
                changes.push_back({record.field_id, 0, static_cast<std::uint32_t>(position)});
            }
        }
        return changes;
    }

    std::shared_ptr<Store const> store;
    std::filesystem::path folder;
    core::UniqueFd inotify{inotify_init1(IN_CLOEXEC | IN_NONBLOCK)};
    bool watching = false;
    ContentId content;         // that the position belongs to
    std::int64_t position = 0; // everything up to this journal entry has been returned
};

struct Slot {
    std::mutex mutex;
    std::unique_ptr<ChangeFeed> feed; // guarded by mutex
};

Slot& slot() {
    static Slot one;
    return one;
}

} // namespace

core::Result<std::unique_ptr<ChangeFeed>> ChangeFeed::follow(std::shared_ptr<Store const> store,
                                                             std::filesystem::path const& folder) {
    auto feed = std::make_unique<JournalFeed>(std::move(store), folder);
    OUTCOME_TRY(feed->start());
    return std::unique_ptr<ChangeFeed>{std::move(feed)};
}

void ChangeFeed::offer(std::unique_ptr<ChangeFeed> feed) {
    std::lock_guard const lock{slot().mutex};
    slot().feed.swap(feed);
}

core::Result<std::unique_ptr<ChangeFeed>> ChangeFeed::open(std::filesystem::path const& folder) {
    OUTCOME_TRY(store, Store::open({}, folder, Store::Access::Read));
    return follow(std::move(store), folder);
}

std::unique_ptr<ChangeFeed> ChangeFeed::take() {
    std::lock_guard const lock{slot().mutex};
    return std::move(slot().feed);
}

} // namespace xpon::cfgdb
