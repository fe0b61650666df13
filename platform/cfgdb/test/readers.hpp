#pragma once

// The plain readers behind one form, so that a test can go through all of them.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "xpon/cfgdb/modules.hpp"
#include "xpon/cfgdb/syslog_settings.hpp"

namespace xpon::cfgdb {

using Bytes = std::vector<std::uint8_t>;

struct Reader {
    std::string prefix; // of the settings in its record
    std::size_t size;   // of its record
    std::function<int(void const* db, void* out, unsigned short const* key)> read;
    std::function<int(void* out)> init; // empty where there is none
};

template <class T>
Reader reader(std::string prefix, int (*read)(void const*, T*, unsigned short const*),
              int (*init)(T*) = nullptr) {
    Reader made{std::move(prefix),
                sizeof(T),
                [read](void const* db, void* out, unsigned short const* key) {
                    return read(db, static_cast<T*>(out), key);
                },
                {}};
    if (init != nullptr) {
        made.init = [init](void* out) { return init(static_cast<T*>(out)); };
    }
    return made;
}

inline std::vector<Reader> all_readers() {
    // clang-format off
    return {
        reader("syslog.file.",       getRunDb_CommonGCfg_logging_syslog_file),
        reader("syslog.console.",    getRunDb_CommonGCfg_logging_syslog_console),
        reader("syslog.remote.",     getRunDb_CommonGCfg_logging_syslog_remote, init_SyslogNetworkDest),
        reader("syslog.kernel.",     getRunDb_CommonGCfg_logging_syslog_kernel),
        reader("syslog.rsh.",        getRunDb_CommonGCfg_logging_syslog_rsh),
#define STORED_READER(value, Descriptor, Subjects, name, ...)                                                \
        reader("module." #name ".", getRunDb_CommonGCfg_logging_module_##name, init_##Descriptor),
#define NO_READER(...)
        XPON_MODULES(STORED_READER, NO_READER)
#undef STORED_READER
#undef NO_READER
    };
    // clang-format on
}

inline Reader reader_of(std::string const& prefix) {
    for (auto const& reader : all_readers()) {
        if (reader.prefix == prefix) {
            return reader;
        }
    }
    throw std::invalid_argument(prefix);
}

} // namespace xpon::cfgdb
