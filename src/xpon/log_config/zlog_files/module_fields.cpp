#include "xpon/log_config/zlog_files/module_fields.hpp"

#include <algorithm>
#include <array>

#include "xpon/log_config/zlog_files/catalogue.hpp"

namespace xpon::log_config {

using namespace catalogue;

namespace {

template <auto const& entry>
struct Reader;

template <class M, class S, ModuleEntry<M, S> const& entry>
struct Reader<entry> {
    static int read(void const* db, std::any& out, unsigned short const* key) {
        auto& descriptor = out.emplace<M>();
        return entry.read_descriptor(db, &descriptor, key);
    }
};

template <auto const& entry>
constexpr ModuleField field() {
    // SNMP's value on purpose: the session manager's own file is rewritten only at the next start.
    auto const queued_as = entry.module == session_mgr.module ? snmp.module : entry.module;
    return {entry.field_id, entry.module, queued_as, Reader<entry>::read};
}

// clang-format off
#define XPON_STORED(row, ...) field<row>(),
#define XPON_BUILT_IN(...)
constexpr std::array module_fields{XPON_CATALOGUE(XPON_STORED, XPON_BUILT_IN)};
#undef XPON_BUILT_IN
#undef XPON_STORED
// clang-format on
static_assert(module_fields.size() == 18);

} // namespace

ModuleField const* find_module_field(std::uint32_t field_id) {
    auto const* const row = std::ranges::find(module_fields, field_id, &ModuleField::field_id);
    return row == module_fields.end() ? nullptr : row;
}

ModuleField const* find_field_of(Modules_names module) {
    auto const* const row = std::ranges::find(module_fields, module, &ModuleField::module);
    return row == module_fields.end() ? nullptr : row;
}

bool reaches_its_file(Modules_names module) {
    auto const* const field = find_field_of(module);
    return field == nullptr || field->queued_as == module;
}

} // namespace xpon::log_config
