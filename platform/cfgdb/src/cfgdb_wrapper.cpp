#include "xpon/cfgdb/cfgdb_wrapper.hpp"

#include <stdexcept>

#include "journal_feed.hpp"
#include "store.hpp"

namespace xpon::cfgdb {

namespace {

template <class T>
T or_throw(core::Result<T> result) {
    if (result.has_error()) {
        throw std::runtime_error{result.error().message()};
    }
    return std::move(result).value();
}

} // namespace

CfgDbWrapper::CfgDbWrapper(std::string const& name, std::filesystem::path const& folder)
  : store{or_throw(Store::open(name, folder, Store::Access::Write))} {
    ChangeFeed::offer(or_throw(make_feed(store, folder)));
}

CfgDbWrapper::CfgDbWrapper(std::string const& name, std::filesystem::path const& folder, ReadOnly)
  : store{or_throw(Store::open(name, folder, Store::Access::Read))} {}

CfgDbWrapper::~CfgDbWrapper() = default;

void const* CfgDbWrapper::db() const {
    return store.get();
}

} // namespace xpon::cfgdb
