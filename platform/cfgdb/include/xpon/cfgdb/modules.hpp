#pragma once

// The logging modules: identifiers, descriptor records, subjects, and the functions that read, default and
// name them. The readers follow the rules in syslog_settings.hpp. Levels: 0 critical ... 5 debug.

#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "xpon/cfgdb/module_list.hpp"

/// Identifiers of the logging modules. No module has 10, 12, 14 or 15.
enum Modules_names : std::uint32_t {};

namespace xpon::cfgdb {

constexpr std::size_t count(std::initializer_list<char const*> names) {
    return names.size();
}

/// The record of a module that has so many subjects: one level for each, in their order.
template <std::uint32_t MODULE, std::size_t SUBJECTS>
struct Levels {
    std::uint16_t level[SUBJECTS];
};

/// The PON state machines. Each of the 16 ports has 256 ONTs, and each ONT has its own level.
template <>
struct Levels<2, 11> {
    std::uint16_t level[11];
    std::uint16_t olt;
    std::uint16_t port[16];
    std::uint16_t ont[16][256];
};

} // namespace xpon::cfgdb

// NOLINTBEGIN(bugprone-macro-parentheses): the arguments are types and names
// clang-format off
/// A module: its subjects are numbered from 0.
#define XPON_BUILT_IN_MODULE(value, Descriptor, Subjects, lookup, stem, ...)                                 \
    enum Subjects : std::uint32_t {};                                                                        \
    struct Descriptor : xpon::cfgdb::Levels<value, xpon::cfgdb::count({__VA_ARGS__})> {};                    \
    extern "C" int init_##Descriptor(Descriptor* out);                                                       \
    extern "C" int get_##lookup##_subjects_from_index(char* out, Subjects subject);
/// A module whose levels are stored. The others have the built-in defaults.
#define XPON_STORED_MODULE(value, Descriptor, Subjects, reader, lookup, field, stem, ...)                    \
    XPON_BUILT_IN_MODULE(value, Descriptor, Subjects, lookup, stem, __VA_ARGS__)                             \
    extern "C" int getRunDb_CommonGCfg_logging_module_##reader(void const* db, Descriptor* out, unsigned short const* key);
XPON_MODULES(XPON_STORED_MODULE, XPON_BUILT_IN_MODULE)
#undef XPON_STORED_MODULE
#undef XPON_BUILT_IN_MODULE
// clang-format on
// NOLINTEND(bugprone-macro-parentheses)
static_assert(sizeof(ModuleDna) == 14 && sizeof(ModuleFsmPon) == 8248);

/// Writes the stem of a module's category names, in upper case and zero-terminated, into the caller's buffer
/// of 15 bytes. The `get_*_subjects_from_index` functions do the same for the name of a subject. They return
/// 0. For a number outside the catalogue or a null buffer they return -1 with `errno` EINVAL and leave the
/// buffer unchanged.
extern "C" int get_modules_names_from_index(char* out, Modules_names module);
