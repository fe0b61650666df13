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
constexpr ModuleField field(std::uint32_t field_id, Modules_names queued_as = entry.module) {
    return {field_id, queued_as, Reader<entry>::read};
}

constexpr std::array module_fields{
    field<alarm_mgr>(58),
    field<dna>(59),
    field<fsm_pon>(60),
    field<igmp>(61),
    field<dhcp_ra>(62),
    field<arp>(63),
    field<ipsg>(64),
    field<pppoe_ia>(65),
    field<lldp>(66),
    field<lacp>(67),
    field<l3_agent>(68),
    field<snmp>(69),
    // SNMP's value on purpose: the session manager's own file is rewritten only at the next start.
    field<session_mgr>(71, snmp.module),
    field<cli>(73),
    field<netserve>(76),
    field<acs_custom>(77),
    field<switch_>(78),
    field<datapath>(79),
};
static_assert(module_fields.size() == 18);

} // namespace

ModuleField const* find_module_field(std::uint32_t field_id) {
    auto const* const row = std::ranges::find(module_fields, field_id, &ModuleField::field_id);
    return row == module_fields.end() ? nullptr : row;
}

} // namespace xpon::log_config
