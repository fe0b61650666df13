#include "session.hpp"

#include <utility>

#include "files.hpp"

namespace xpon::cfgdb {

core::Result<std::unique_ptr<Session>> Session::begin(std::filesystem::path const& folder) {
    OUTCOME_TRY(store, Store::open({}, folder, Store::Access::Write));
    OUTCOME_TRY(store->unshared().execute("BEGIN IMMEDIATE"));
    std::unique_ptr<Session> session{new Session{std::move(store), folder}};
    OUTCOME_TRY(add_what_is_missing(session->connection()));
    return session;
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
