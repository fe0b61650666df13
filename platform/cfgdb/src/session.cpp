#include "session.hpp"

#include <utility>

#include "files.hpp"

namespace xpon::cfgdb {

core::Result<std::unique_ptr<Session>> Session::begin(std::filesystem::path const& folder) {
    OUTCOME_TRY(store, Store::open({}, folder, Store::Access::Write));
    OUTCOME_TRY(store->unshared().execute("BEGIN IMMEDIATE"));
    return std::unique_ptr<Session>{new Session{std::move(store), folder}};
}

Session::Session(std::shared_ptr<Store> opened, std::filesystem::path in_folder)
  : folder{std::move(in_folder)}
  , store{std::move(opened)}
  , rollback{connection()} {}

core::Result<void> Session::prepare_to_write() {
    if (!doorbell) {
        OUTCOME_TRY(opened, open_doorbell(folder));
        doorbell = std::move(opened);
    }
    return core::success();
}

} // namespace xpon::cfgdb
