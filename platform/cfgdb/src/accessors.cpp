#include <cerrno>
#include <cstring>
#include <exception>
#include <optional>

#include <syslog.h>

#include <fmt/format.h>

#include "record.hpp"
#include "store.hpp"
#include "xpon/cfgdb/module_table.hpp"
#include "xpon/cfgdb/syslog_settings.hpp"

namespace xpon::cfgdb {

namespace {

int refuse(int error_number) {
    errno = error_number;
    return -1;
}

/// Copies a name with its terminating zero into a caller's buffer.
int hand_out(std::string_view name, char* out) {
    if (out == nullptr) {
        return refuse(EINVAL);
    }
    std::memcpy(out, name.data(), name.size());
    out[name.size()] = '\0';
    return 0;
}

int name_subject(Modules_names module, std::uint32_t subject, char* out) {
    auto const& subjects = find_module(module)->subjects;
    return subject < subjects.size() ? hand_out(subjects[subject], out) : refuse(EINVAL);
}

int fill_defaults(Record const& record, void* out) {
    if (out == nullptr) {
        return refuse(EINVAL);
    }
    std::memcpy(out, record.defaults.data(), record.defaults.size());
    return 0;
}

std::optional<ReadFailure> read(Record const& record, Store const* store, void* out,
                                unsigned short const* key) {
    if (store == nullptr) {
        return ReadFailure{EINVAL, "no database handle given"};
    }
    auto const failed = [store](int error_number, std::string_view text) {
        return ReadFailure{error_number, fmt::format("{}: {}", store->path().string(), text)};
    };
    if (out == nullptr || key == nullptr) {
        return failed(EINVAL, out == nullptr ? "no record given" : "no key given");
    }
    if (key[0] != 0 || key[1] != 0 || key[2] != 0) {
        return failed(EINVAL, not_allowed(fmt::format("key {}.{}.{}", key[0], key[1], key[2]), "0.0.0"));
    }
    try {
        return store->read(record, out);
    } catch (std::exception const& exception) {
        return failed(EIO, exception.what());
    }
}

/// The C readers return only a number; the reason goes to the system log.
int read_stored(Record const& record, void const* db, void* out, unsigned short const* key) {
    int const errno_before = errno;
    auto const* const store = static_cast<Store const*>(db);
    auto const failure = read(record, store, out, key);
    if (!failure) {
        errno = errno_before;
        return 0;
    }
    auto const line = store == nullptr ? fmt::format("cfgdb - {}*: {}", record.prefix, failure->text)
                                       : fmt::format("{} - {}", store->name(), failure->text);
    syslog(LOG_LOCAL0 | LOG_ERR, "%s", line.c_str());
    return refuse(failure->error_number);
}

} // namespace

} // namespace xpon::cfgdb

using namespace xpon::cfgdb;

extern "C" {

// clang-format off
#define STORED_FUNCTIONS(value, Descriptor, Subjects, reader, lookup, field, stem, ...)                      \
    int getRunDb_CommonGCfg_logging_module_##reader(void const* db, Descriptor* out, unsigned short const* key) \
    {                                                                                                        \
        return read_stored(module_record(Modules_names{value}), db, out, key);                               \
    }                                                                                                        \
    BUILT_IN_FUNCTIONS(value, Descriptor, Subjects, lookup, stem, __VA_ARGS__)
#define BUILT_IN_FUNCTIONS(value, Descriptor, Subjects, lookup, stem, ...)                                   \
    int init_##Descriptor(Descriptor* out)                                                                   \
    {                                                                                                        \
        return fill_defaults(module_record(Modules_names{value}), out);                                      \
    }                                                                                                        \
    int get_##lookup##_subjects_from_index(char* out, Subjects subject)                                      \
    {                                                                                                        \
        return name_subject(Modules_names{value}, subject, out);                                             \
    }
XPON_MODULES(STORED_FUNCTIONS, BUILT_IN_FUNCTIONS)
// clang-format on

int get_modules_names_from_index(char* out, Modules_names module) {
    auto const* const found = find_module(module);
    return found != nullptr ? hand_out(found->stem, out) : refuse(EINVAL);
}

#define SYSLOG_RECORDS(ROW)                                                                                  \
    ROW(file, SyslogFileDest)                                                                                \
    ROW(console, SyslogConsoleDest)                                                                          \
    ROW(remote, SyslogNetworkDest)                                                                           \
    ROW(kernel, SyslogKernelDest)                                                                            \
    ROW(rsh, SyslogRshDest)

int init_SyslogSettings(SyslogSettings* out) {
    if (out == nullptr) {
        return refuse(EINVAL);
    }
    std::memset(out, 0, sizeof *out);
#define SYSLOG_DEFAULTS(name, Record) fill_defaults(syslog_record(name##_field), &out->name);
    SYSLOG_RECORDS(SYSLOG_DEFAULTS)
    return 0;
}

int init_SyslogNetworkDest(SyslogNetworkDest* out) {
    return fill_defaults(syslog_record(remote_field), out);
}

// NOLINTBEGIN(bugprone-macro-parentheses): Record is a type
#define SYSLOG_READER(name, Record)                                                                          \
    int getRunDb_CommonGCfg_logging_syslog_##name(void const* db, Record* out, unsigned short const* key) {  \
        return read_stored(syslog_record(name##_field), db, out, key);                                       \
    }
SYSLOG_RECORDS(SYSLOG_READER)
// NOLINTEND(bugprone-macro-parentheses)
}
