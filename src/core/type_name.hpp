#pragma once

#include <string>
#include <typeinfo>

namespace xpon::core {

/// The type's name as a programmer writes it, or the mangled name if it cannot be demangled.
std::string readable(std::type_info const& type);

template <class T>
std::string type_name() {
    return readable(typeid(T));
}

} // namespace xpon::core
