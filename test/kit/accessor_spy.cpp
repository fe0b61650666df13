#include "kit/accessor_spy.hpp"

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "xpon/cfgdb/modules.hpp"
#include "xpon/cfgdb/syslog_settings.hpp"

namespace xpon::test {

namespace {

AccessorSpy* active = nullptr;

} // namespace

AccessorSpy::AccessorSpy() {
    active = this;
}

AccessorSpy::~AccessorSpy() {
    active = nullptr;
}

std::string const* AccessorSpy::stem_to_answer() {
    return active != nullptr && !active->stem.empty() ? &active->stem : nullptr;
}

int AccessorSpy::intercept(char const* function) {
    if (active == nullptr) {
        return 0;
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

} // namespace xpon::test

using xpon::test::AccessorSpy;

#define WRAP(function, parameters, arguments)                                                                \
    extern "C" int __real_##function parameters;                                                             \
    extern "C" int __wrap_##function parameters;                                                             \
    int __wrap_##function parameters {                                                                       \
        int const status = AccessorSpy::intercept(#function);                                                \
        return status != 0 ? status : __real_##function arguments;                                           \
    }

// NOLINTBEGIN(bugprone-reserved-identifier): these are the names that the linker's --wrap gives
#define SYSLOG_INIT(Record) WRAP(init_##Record, (Record * out), (out))
#define SYSLOG(name, Record)                                                                                 \
    WRAP(getRunDb_CommonGCfg_logging_syslog_##name,                                                          \
         (void const* db, Record* out, unsigned short const* key), (db, out, key))
#define STORED(name, Record)                                                                                 \
    WRAP(getRunDb_CommonGCfg_logging_module_##name,                                                          \
         (void const* db, Record* out, unsigned short const* key), (db, out, key))
#define BUILT_IN(Record) WRAP(init_##Record, (Record * out), (out))
#define LOOKUP(name, Subjects)                                                                               \
    WRAP(get_##name##_subjects_from_index, (char* out, Subjects subject), (out, subject))
#include "kit/accessors.def"
extern "C" int __real_get_modules_names_from_index(char* out, Modules_names module);
extern "C" int __wrap_get_modules_names_from_index(char* out, Modules_names module);
int __wrap_get_modules_names_from_index(char* out, Modules_names module) {
    if (auto const* const stem = AccessorSpy::stem_to_answer()) {
        std::memcpy(out, stem->data(), stem->size());
        return 0;
    }
    int const status = AccessorSpy::intercept("get_modules_names_from_index");
    return status != 0 ? status : __real_get_modules_names_from_index(out, module);
}
// NOLINTEND(bugprone-reserved-identifier)
