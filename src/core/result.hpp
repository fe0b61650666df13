#pragma once

// The only file that names the outcome library.
#include <boost/outcome/basic_result.hpp>
#include <boost/outcome/policy/base.hpp>
#include <boost/outcome/try.hpp>

#include "core/error.hpp"

namespace xpon::core {

namespace outcome = BOOST_OUTCOME_V2_NAMESPACE;

/// Writes the wrong access to standard error and aborts.
[[noreturn]] void wrong_result_access(char const* access);

/// Reading the value of a failed result, or the error of a successful one, is a programming error. It aborts
/// the process in every build type.
struct XponPolicy : outcome::policy::base {
    template <class Impl>
    static constexpr void wide_value_check(Impl&& self) {
        if (!base::_has_value(self)) {
            wrong_result_access("value() of a result that holds an error");
        }
    }

    template <class Impl>
    static constexpr void wide_error_check(Impl&& self) {
        if (!base::_has_error(self)) {
            wrong_result_access("error() of a result that holds a value");
        }
    }
};

/// A value of type T, or the reason why there is none.
template <class T>
using Result = outcome::basic_result<T, ErrorPayload, XponPolicy>;

using outcome::success;

} // namespace xpon::core

// OUTCOME_TRY(expression) returns the error of the expression to the caller; otherwise execution continues.
// OUTCOME_TRY(name, expression) also keeps the value, as `auto&& name`.
#define XPON_TRY_SELECT(first, second, chosen, ...) chosen
#define OUTCOME_TRY(...) XPON_TRY_SELECT(__VA_ARGS__, BOOST_OUTCOME_TRYA, BOOST_OUTCOME_TRYV, )(__VA_ARGS__)
