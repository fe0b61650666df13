#pragma once

// The syslog records of the global logging configuration and their readers. The layouts are an interface:
// the readers write directly into the caller's memory, exactly in the layout given here (little-endian).
//
// Levels: 0 critical, 1 error, 2 warning, 3 notice, 4 info, 5 debug.
//
// Every reader takes the raw database handle, the record to fill and a key of three words, all zero for the
// single global row. It returns 0 and leaves `errno` unchanged, or returns -1, sets `errno` and leaves the
// record unchanged. The reason, with path and value, goes to syslog(3). Safe from any thread.
//
// EINVAL: a null argument, another key, or a stored value that is out of range or of the wrong type; also two
// receivers with the same address and port. EBUSY: the database was locked for longer than 5 s. EIO: any
// other failure of the database.

#include <cstddef>
#include <cstdint>

struct SyslogFileDest {
    char path[32];       ///< NUL-terminated, ends in '/'
    std::uint32_t size;  ///< bytes after which the file is rotated
    std::uint16_t level; ///< the least severe level that is written
};

struct SyslogConsoleDest {
    std::uint16_t level;
};

struct SyslogNetworkDest {
    struct Receiver {
        char address[16];   ///< NUL-terminated dotted IPv4, "0.0.0.0" if the receiver is unused
        std::uint16_t port; ///< UDP
    } dest[3];
    std::uint16_t level; ///< one for all receivers
};

struct SyslogKernelDest {
    std::uint16_t level;
};

struct SyslogRshDest {
    std::uint16_t level;
};

struct SyslogSettings {
    SyslogFileDest file;
    SyslogConsoleDest console;
    SyslogNetworkDest remote;
    SyslogKernelDest kernel;
    SyslogRshDest rsh;
};

static_assert(sizeof(SyslogSettings) == 104 && alignof(SyslogSettings) == 4);
static_assert(offsetof(SyslogSettings, file.size) == 32);
static_assert(offsetof(SyslogSettings, file.level) == 36);
static_assert(offsetof(SyslogSettings, console) == 40);
static_assert(offsetof(SyslogSettings, remote) == 42 && sizeof(SyslogNetworkDest::Receiver) == 18);
static_assert(offsetof(SyslogSettings, remote.level) == 96);
static_assert(offsetof(SyslogSettings, kernel) == 98);
static_assert(offsetof(SyslogSettings, rsh) == 100);

extern "C" {

/// Fills the whole record with the defaults.
int init_SyslogSettings(SyslogSettings* out);
/// Fills the record with the defaults: every receiver unused.
int init_SyslogNetworkDest(SyslogNetworkDest* out);

int getRunDb_CommonGCfg_logging_syslog_file(void const* db, SyslogFileDest* out, unsigned short const* key);
int getRunDb_CommonGCfg_logging_syslog_console(void const* db, SyslogConsoleDest* out,
                                               unsigned short const* key);
int getRunDb_CommonGCfg_logging_syslog_remote(void const* db, SyslogNetworkDest* out,
                                              unsigned short const* key);
int getRunDb_CommonGCfg_logging_syslog_kernel(void const* db, SyslogKernelDest* out,
                                              unsigned short const* key);
int getRunDb_CommonGCfg_logging_syslog_rsh(void const* db, SyslogRshDest* out, unsigned short const* key);
}
