#pragma once

#include <filesystem>
#include <memory>
#include <string>

namespace xpon::cfgdb {

/// The folder of the database `running.db`.
inline constexpr char const* default_folder = "/var/lib/xpon/cfgdb";

class Store;

struct ReadOnly {};

/// The open configuration database of a process, and the raw handle that the C readers take.
class CfgDbWrapper {
  public:
    /// Opens the database; creates it and its folder, with the defaults, if it does not exist. Before the
    /// first read it starts to watch for changes and records the position in the journal. Both are stored in
    /// a process-wide slot for `ChangeFeed::take`. A change committed from now on is therefore either part of
    /// what is read or delivered later. `name` is the category of the library's own log lines. Throws
    /// std::runtime_error with path and reason if the database cannot be used: no permission, corrupt, of a
    /// newer schema, locked for more than 5 s.
    explicit CfgDbWrapper(std::string const& name, std::filesystem::path const& folder = default_folder);
    /// Opens an existing database for reading only. Permission to read is enough; no feed is stored in the
    /// slot. Throws as above.
    CfgDbWrapper(std::string const& name, std::filesystem::path const& folder, ReadOnly);
    ~CfgDbWrapper();

    CfgDbWrapper(CfgDbWrapper const&) = delete;
    CfgDbWrapper& operator=(CfgDbWrapper const&) = delete;

    /// The raw handle, valid while the wrapper lives. Any number of threads may read through it at once.
    void const* db() const;

  private:
    std::shared_ptr<Store> store;
};

} // namespace xpon::cfgdb
