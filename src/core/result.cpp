#include "core/result.hpp"

#include <cstdio>
#include <cstdlib>

namespace xpon::core {

void wrong_result_access(char const* access) {
    std::fprintf(stderr, "wrong access to a result: %s\n", access);
    std::abort();
}

} // namespace xpon::core
