#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "core/result.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"
#include "xpon/log_config/syslog_ng/syslog_ng_text.hpp"
#include "xpon/log_config/zlog_files/config_files.hpp"

namespace xpon::log_config {

/// Something that the daemon keeps in step with the settings.
struct Output {
    std::string_view name;               ///< as operators call it: "syslog-ng", "kernel", "SNMP.conf"
    std::string path;                    ///< of the file that holds it
    std::optional<Modules_names> reader; ///< the module that is told of a change
    std::uint32_t field;                 ///< whose delivery makes the daemon write it; 0 if only a start does
    bool at_start_only;                  ///< its settings take effect when the daemon starts, not before
    ConfigFileEntry const* zlog_file;    ///< null for syslog-ng and the kernel
};

inline constexpr std::size_t output_count = 2 + zlog_files.size();
static_assert(output_count == 28);

/// Every output: syslog-ng, the kernel, then the zlog files in the order of their table.
std::span<Output const, output_count> outputs();
Output const& syslog_ng_output();
Output const& kernel_output();

/// The output of this name, ".conf" or not; null if there is none.
Output const* find_output(std::string_view name);

/// The modules of a zlog file with their stored levels. Fails with `CommonError` or, where a constructor
/// throws, `Exception`.
Result<LogModules> read_modules(ConfigFileEntry const& file,
                                std::shared_ptr<cfgdb::CfgDbWrapper> const& cfgdb);

/// What the output holds when it is in step with the database, by the daemon's own readers. For the kernel
/// this is what the daemon writes: the console level and a newline. Fails with `ErrorCApi`, or as
/// `read_modules` does, if a record cannot be read. Writes nothing.
Result<std::string> wanted_text(Output const& output, std::shared_ptr<cfgdb::CfgDbWrapper> const& cfgdb,
                                OpenShells const& shells = {});

/// Whether an output whose file has this content is in step. The kernel adds three numbers of its own.
bool holds(Output const& output, std::string_view content, std::string_view wanted);

/// The terminals that a text of syslog-ng.conf gives an output: only the daemon knows which have opened since
/// it serves.
OpenShells shells_in(std::string_view syslog_ng_conf);

} // namespace xpon::log_config
