#pragma once

#include <cstdint>

#include "core/result.hpp"
#include "xpon/cfgdb/config_change.hpp"
#include "xpon/cfgdb/syslog_settings.hpp"
#include "xpon/log_config/global_row.hpp"

namespace xpon::log_config {

/// Whether a change of the field is one of the record's, or the kernel's, which is asked for first.
constexpr bool is_syslog_field(std::uint32_t field_id) {
    return field_id >= cfgdb::file_field && field_id <= cfgdb::rsh_field;
}

/// The record as stored, except `kernel`, which holds the default. `check` turns the status of each function
/// that is called into a `Result<void>`; the first error ends the reading.
template <class Check>
core::Result<SyslogSettings> read_syslog_settings(void const* db, Check const& check) {
    // Parentheses zero the whole record; braces would leave the padding as it is.
    auto settings = SyslogSettings();
    OUTCOME_TRY(check(init_SyslogSettings(&settings)));
    OUTCOME_TRY(check(getRunDb_CommonGCfg_logging_syslog_remote(db, &settings.remote, global_row)));
    OUTCOME_TRY(check(getRunDb_CommonGCfg_logging_syslog_rsh(db, &settings.rsh, global_row)));
    OUTCOME_TRY(check(getRunDb_CommonGCfg_logging_syslog_file(db, &settings.file, global_row)));
    OUTCOME_TRY(check(getRunDb_CommonGCfg_logging_syslog_console(db, &settings.console, global_row)));
    return settings;
}

} // namespace xpon::log_config
