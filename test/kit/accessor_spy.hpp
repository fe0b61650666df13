#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <type_traits>
#include <vector>

namespace xpon::test {

/// Stands between the code under test and the configuration library's plain functions (test programs link
/// with --wrap for each of them): remembers the calls and makes chosen ones fail; the others reach the real
/// library. One at a time; the functions may be called from several threads. A function that the library does
/// not have aborts the program wherever it is named: what is expected of it could not fail.
class AccessorSpy {
  public:
    AccessorSpy();
    ~AccessorSpy();
    AccessorSpy(AccessorSpy const&) = delete;
    AccessorSpy& operator=(AccessorSpy const&) = delete;

    /// From now on `function` returns `status` and leaves `reason` in errno (0: leaves errno alone).
    void fail(std::string const& function, int status, int reason = 0);
    /// From now on `function` throws std::runtime_error with this text, or the int 7 for an empty one.
    void make_throw(std::string const& function, std::string const& text);
    /// From now on `function`, one of those that name something, says this.
    void answer(std::string const& function, std::string const& name);
    /// At the next call of `function`, `act` runs first. It may call the watched functions, too.
    void run_before(std::string const& function, std::function<void()> act);
    void clear();

    /// The names of the functions called so far, in order.
    std::vector<std::string> calls() const;
    bool was_called(std::string const& function) const;

    /// Every function that is watched.
    static std::vector<std::string> const& functions();

    /// What the program calls instead of `function`, which is `real`.
    template <class... Args>
    static int call(char const* function, int (*real)(Args...), std::type_identity_t<Args>... arguments) {
        int const status = intercept(function);
        return status != 0 || (take_over(function, arguments) || ...) ? status : real(arguments...);
    }

  private:
    struct Failure {
        int status;
        int reason;
    };

    /// The status to return instead of a call, 0 to go on with it.
    static int intercept(char const* function);
    /// Writes the name that is to be answered; false if there is none.
    static bool take_over(char const* function, char* out);
    template <class Other>
    static bool take_over(char const* /*function*/, Other /*no place for a name*/) {
        return false;
    }

    mutable std::mutex mutex; // guards the rest
    std::map<std::string, Failure> failures;
    std::map<std::string, std::string> exceptions;
    std::map<std::string, std::string> answers;
    std::map<std::string, std::function<void()>> acts;
    std::vector<std::string> called;
};

} // namespace xpon::test
