#pragma once

#include <filesystem>
#include <memory>
#include <string>

namespace xpon::cfgdb {

/// Where the database `running.db` lives.
inline constexpr char const* default_folder = "/var/lib/xpon/cfgdb";

class Store;

struct ReadOnly {};

/// The open configuration database of a process, and the raw handle that the plain readers take.
class CfgDbWrapper {
  public:
    /// Opens the database, creating it (and its folder) with the defaults where there is none. Before the
    /// first read it starts to watch for changes and takes the position in the journal; both wait in a
    /// process-wide slot for `ChangeFeed::take`, so that a change committed from now on is either in what is
    /// read or is delivered. `name` is the category of the library's own log lines. Throws std::runtime_error
    /// naming path and reason when the database cannot be used: no permission, corrupt, of a newer schema,
    /// locked for more than 5 s.
    explicit CfgDbWrapper(std::string const& name, std::filesystem::path const& folder = default_folder);
    /// Opens an existing database for reading alone: the permission to read is enough, and no feed waits in
    /// the slot. Throws as above.
    CfgDbWrapper(std::string const& name, std::filesystem::path const& folder, ReadOnly);
    ~CfgDbWrapper();

    CfgDbWrapper(CfgDbWrapper const&) = delete;
    CfgDbWrapper& operator=(CfgDbWrapper const&) = delete;

    /// The raw handle, valid while the wrapper lives; any number of threads may read through it at once.
    void const* db() const;

  private:
    std::shared_ptr<Store> store;
};

} // namespace xpon::cfgdb
