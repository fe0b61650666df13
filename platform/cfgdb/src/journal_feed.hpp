#pragma once

#include <filesystem>
#include <memory>

#include "core/result.hpp"
#include "store.hpp"
#include "xpon/cfgdb/change_feed.hpp"

namespace xpon::cfgdb {

/// A feed that hands out what is committed from now on: it watches before it takes its position.
core::Result<std::unique_ptr<ChangeFeed>> make_feed(std::shared_ptr<Store const> store,
                                                    std::filesystem::path const& folder);

} // namespace xpon::cfgdb
