#pragma once

#include <map>
#include <string>
#include <vector>

namespace xpon::test {

/// Stands between the code under test and the configuration library's plain functions (test programs link
/// with
/// --wrap for each of them): remembers the calls and makes chosen ones fail; the others reach the real
/// library. One at a time; single-threaded.
class AccessorSpy {
  public:
    AccessorSpy();
    ~AccessorSpy();
    AccessorSpy(AccessorSpy const&) = delete;
    AccessorSpy& operator=(AccessorSpy const&) = delete;

    /// From now on `function` returns `status` and leaves `reason` in errno (0: leaves errno alone).
    void fail(std::string const& function, int status, int reason = 0) {
        failures[function] = {status, reason};
    }
    /// From now on `function` throws std::runtime_error with this text, or the int 7 for an empty one.
    void make_throw(std::string const& function, std::string const& text) { exceptions[function] = text; }
    /// From now on every module has this stem.
    void answer_stem(std::string const& text) { stem = text; }
    void clear() {
        failures.clear();
        exceptions.clear();
        called.clear();
    }

    /// The names of the functions called so far, in order.
    std::vector<std::string> const& calls() const { return called; }

    /// The status to return instead of a call, 0 to go on with it.
    static int intercept(char const* function);
    /// The stem to answer, null to ask the library.
    static std::string const* stem_to_answer();

  private:
    struct Failure {
        int status;
        int reason;
    };
    std::map<std::string, Failure> failures;
    std::map<std::string, std::string> exceptions;
    std::vector<std::string> called;
    std::string stem;
};

} // namespace xpon::test
