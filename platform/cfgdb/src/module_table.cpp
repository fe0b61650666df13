#include "xpon/cfgdb/module_table.hpp"

#include <algorithm>

namespace xpon::cfgdb {

namespace {

// clang-format off
#define STORED_SUBJECTS(value, Descriptor, Subjects, reader, lookup, field, stem, ...)                       \
    BUILT_IN_SUBJECTS(value, Descriptor, Subjects, lookup, stem, __VA_ARGS__)
#define BUILT_IN_SUBJECTS(value, Descriptor, Subjects, lookup, stem, ...)                                    \
    constexpr std::string_view subjects_of_##Descriptor[] = {__VA_ARGS__};
XPON_MODULES(STORED_SUBJECTS, BUILT_IN_SUBJECTS)

#define STORED_ROW(value, Descriptor, Subjects, reader, lookup, field, stem, ...)                            \
    {Modules_names{value}, field, #Descriptor, #reader, stem, subjects_of_##Descriptor},
#define BUILT_IN_ROW(value, Descriptor, Subjects, lookup, stem, ...)                                         \
    {Modules_names{value}, 0, #Descriptor, #lookup, stem, subjects_of_##Descriptor},
constexpr Module table[] = {XPON_MODULES(STORED_ROW, BUILT_IN_ROW)};
// clang-format on

// With its terminating zero a name fills at most the callers' buffers of 15 bytes.
constexpr bool fits(std::string_view name) {
    return !name.empty() && name.size() <= 14;
}

static_assert(std::size(table) == 40);
static_assert(std::ranges::count(table, 0U, &Module::field_id) == 22);
static_assert(std::ranges::is_sorted(table, std::ranges::less_equal{}, &Module::value));
static_assert(std::ranges::all_of(table, fits, &Module::stem));
static_assert(std::ranges::all_of(table, [](Module const& module) {
    return std::ranges::all_of(module.subjects, fits);
}));

} // namespace

std::span<Module const> modules() {
    return table;
}

Module const* find_module(Modules_names value) {
    auto const* const found = std::ranges::find(table, value, &Module::value);
    return found == std::end(table) ? nullptr : found;
}

} // namespace xpon::cfgdb
