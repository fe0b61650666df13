#include "core/type_name.hpp"

#include <cstdlib>
#include <memory>

#include <cxxabi.h>

namespace xpon::core {

std::string readable(std::type_info const& type) {
    int status = 0;
    std::unique_ptr<char, decltype(&std::free)> const name{
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free};
    return status == 0 ? name.get() : type.name();
}

} // namespace xpon::core
