#include "xpon/system_wrapper/system_wrapper.hpp"

namespace xpon::system_wrapper {

SystemWrapper::SystemWrapper(std::chrono::milliseconds time_limit)
  : limit{time_limit} {}

core::Result<int> SystemWrapper::execute(std::string const& /*command*/) {
    return 0;
}

} // namespace xpon::system_wrapper
