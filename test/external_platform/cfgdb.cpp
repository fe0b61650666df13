#include "xpon/cfgdb/cfgdb_wrapper.hpp"

namespace xpon::cfgdb {

CfgDbWrapper::CfgDbWrapper(std::string const& /*name*/, std::filesystem::path const& /*folder*/) {}
CfgDbWrapper::~CfgDbWrapper() = default;

void const* CfgDbWrapper::db() const {
    return nullptr;
}

} // namespace xpon::cfgdb
