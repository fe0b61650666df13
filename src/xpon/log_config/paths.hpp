#pragma once

namespace xpon::log_config {

inline constexpr char const* syslog_ng_conf = "/etc/syslog-ng/syslog-ng.conf";
/// Its first number is the kernel's console level.
inline constexpr char const* printk = "/proc/sys/kernel/printk";
/// The folder in which the modules of the board look for their files.
inline constexpr char const* zlog_folder = "/etc/zlog_modules_config/";

} // namespace xpon::log_config
