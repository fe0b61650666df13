#include "kit/accessor_spy.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "xpon/cfgdb/modules.hpp"
#include "xpon/cfgdb/syslog_settings.hpp"

// Every plain function of the configuration library, as ACCESSOR(function, parameters, arguments).
// CMakeLists.txt takes the linker's list from the same headers; where the two differ, a test program does not
// link.
// clang-format off
#define INIT(Record) ACCESSOR(init_##Record, (Record * out), (out))
#define READER(name, Record)                                                                                 \
    ACCESSOR(getRunDb_CommonGCfg_logging_##name, (void const* db, Record* out, unsigned short const* key), (db, out, key))
#define BUILT_IN(value, Descriptor, Subjects, lookup, ...)                                                   \
    INIT(Descriptor)                                                                                         \
    ACCESSOR(get_##lookup##_subjects_from_index, (char* out, Subjects subject), (out, subject))
#define STORED(value, Descriptor, Subjects, reader, lookup, ...)                                             \
    READER(module_##reader, Descriptor)                                                                      \
    BUILT_IN(value, Descriptor, Subjects, lookup)
#define ACCESSORS                                                                                            \
    INIT(SyslogSettings)                                                                                     \
    INIT(SyslogNetworkDest)                                                                                  \
    READER(syslog_file, SyslogFileDest)                                                                      \
    READER(syslog_console, SyslogConsoleDest)                                                                \
    READER(syslog_remote, SyslogNetworkDest)                                                                 \
    READER(syslog_kernel, SyslogKernelDest)                                                                  \
    READER(syslog_rsh, SyslogRshDest)                                                                        \
    XPON_MODULES(STORED, BUILT_IN)                                                                           \
    ACCESSOR(get_modules_names_from_index, (char* out, Modules_names module), (out, module))
// clang-format on

namespace xpon::test {

namespace {

AccessorSpy* active = nullptr;

std::string const& known(std::string const& function) {
    auto const& all = AccessorSpy::functions();
    if (std::ranges::find(all, function) == all.end()) {
        std::fprintf(stderr, "AccessorSpy: the configuration library has no function \"%s\"\n",
                     function.c_str());
        std::abort();
    }
    return function;
}

} // namespace

AccessorSpy::AccessorSpy() {
    active = this;
}

AccessorSpy::~AccessorSpy() {
    active = nullptr;
}

void AccessorSpy::fail(std::string const& function, int status, int reason) {
    std::lock_guard const lock{mutex};
    failures[known(function)] = {status, reason};
}

void AccessorSpy::make_throw(std::string const& function, std::string const& text) {
    std::lock_guard const lock{mutex};
    exceptions[known(function)] = text;
}

void AccessorSpy::answer(std::string const& function, std::string const& name) {
    std::lock_guard const lock{mutex};
    answers[known(function)] = name;
}

void AccessorSpy::run_before(std::string const& function, std::function<void()> act) {
    std::lock_guard const lock{mutex};
    acts[known(function)] = std::move(act);
}

void AccessorSpy::clear() {
    std::lock_guard const lock{mutex};
    acts.clear();
    failures.clear();
    exceptions.clear();
    answers.clear();
    called.clear();
}

std::vector<std::string> AccessorSpy::calls() const {
    std::lock_guard const lock{mutex};
    return called;
}

bool AccessorSpy::was_called(std::string const& function) const {
    std::lock_guard const lock{mutex};
    return std::ranges::find(called, known(function)) != called.end();
}

std::vector<std::string> const& AccessorSpy::functions() {
#define ACCESSOR(function, parameters, arguments) #function,
    static std::vector<std::string> const all{ACCESSORS};
#undef ACCESSOR
    return all;
}

int AccessorSpy::intercept(char const* function) {
    if (active == nullptr) {
        return 0;
    }
    std::unique_lock lock{active->mutex};
    if (auto const act = active->acts.extract(function)) {
        lock.unlock();
        act.mapped()();
        lock.lock();
    }
    active->called.emplace_back(function);
    if (auto const thrown = active->exceptions.find(function); thrown != active->exceptions.end()) {
        if (thrown->second.empty()) {
            throw 7;
        }
        throw std::runtime_error(thrown->second);
    }
    auto const failure = active->failures.find(function);
    if (failure == active->failures.end()) {
        return 0;
    }
    if (failure->second.reason != 0) {
        errno = failure->second.reason;
    }
    return failure->second.status;
}

bool AccessorSpy::take_over(char const* function, char* out) {
    if (active == nullptr) {
        return false;
    }
    std::lock_guard const lock{active->mutex};
    auto const answer = active->answers.find(function);
    if (answer == active->answers.end()) {
        return false;
    }
    std::memcpy(out, answer->second.data(), answer->second.size());
    return true;
}

} // namespace xpon::test

using xpon::test::AccessorSpy;

// NOLINTBEGIN(bugprone-reserved-identifier): these are the names that the linker's --wrap gives
#define ACCESSOR(function, parameters, arguments)                                                            \
    extern "C" int __real_##function parameters;                                                             \
    extern "C" int __wrap_##function parameters;                                                             \
    int __wrap_##function parameters {                                                                       \
        return AccessorSpy::call(#function, __real_##function, UNPACK arguments);                            \
    }
#define UNPACK(...) __VA_ARGS__
ACCESSORS
// NOLINTEND(bugprone-reserved-identifier)
