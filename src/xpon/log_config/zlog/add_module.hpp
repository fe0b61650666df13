#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "core/failure.hpp"
#include "core/type_name.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"
#include "xpon/log_config/global_row.hpp"
#include "xpon/log_config/zlog/zlog_module_base.hpp"

namespace xpon::log_config {

/// Fills a descriptor from the database handle and the row's key; 0 on success.
template <class M>
using ReadDescriptor = std::function<int(void const* db, M* out, unsigned short const* key)>;

/// A module's descriptor as it is stored. Fails with `ErrorCApi`.
template <class M>
Result<M> read_module(cfgdb::CfgDbWrapper const& cfgdb, ReadDescriptor<M> const& read_descriptor) {
    auto descriptor = M(); // all bytes zero
    if (read_descriptor(cfgdb.db(), &descriptor, global_row) != 0) {
        return core::fail(core::Error::ErrorCApi, "Failed get config for {}", core::type_name<M>());
    }
    return descriptor;
}

/// Reads a module's descriptor and stores a new module object in the map; an existing object with the same
/// key is replaced. Fails with `ErrorCApi` if the descriptor cannot be read, and leaves the map unchanged.
/// Throws what the constructor of ZlogModuleBase throws.
// NOLINTBEGIN(performance-unnecessary-value-param): taken by value, like the other two functions
template <class M, class S>
Result<void> add_module(std::shared_ptr<cfgdb::CfgDbWrapper> const& cfgdb, LogModules& modules,
                        std::shared_ptr<ILogConfigGenerator> const& generator, Modules_names module,
                        int count, std::function<int(char*, S)> subject_lookup,
                        ReadDescriptor<M> read_descriptor,
                        std::function<void(std::string&)> subject_formatter) {
    OUTCOME_TRY(descriptor, read_module<M>(*cfgdb, read_descriptor));
    modules[module] = std::make_unique<ZlogModuleBase<M, S>>(
        generator, descriptor, module, static_cast<unsigned long>(count), std::move(subject_lookup),
        std::move(subject_formatter));
    return core::success();
}
// NOLINTEND(performance-unnecessary-value-param)

} // namespace xpon::log_config
