#include "xpon/log_config/syslog_ng/syslog_ng_text.hpp"

#include <cstring>
#include <iterator>
#include <string_view>

#include <fmt/format.h>

namespace xpon::log_config {

namespace {

// The comment names a different file from the one that is written. It stays, because people and tools know
// this text.
constexpr std::string_view header =
    R"(#############################################################################
# Default syslog-ng.conf file which collects all local logs into a
# single file called /var/log/messages.
#

@version: 3.20
@include "scl.conf"

template t_only_msg {template("$MESSAGE\n");};
)";

// The duplicate use_dns(no) is intended. The names in backquotes are syslog-ng's references to the two
// definitions above.
constexpr std::string_view options_and_sources = R"(options {
    create-dirs(yes);
    dir-perm(0777);
    perm(0666);
    keep_hostname(yes);
    use_dns(no);
    use_dns(no);
    dns-cache(no);
    stats_freq(0);
    mark_freq(0);
    file-template(t_only_msg);
    proto-template(t_only_msg);
    rotate_if_larger(`file_size`);
    rotate_program("/etc/syslog-ng/logs_rotate 5 `log_path` `file_size`");
    suppress(10);
};

source s_local {
    systemd-journal();
};

source s_local_backtrace {
    file("/tmp/backtrace.log" flags(no-parse));
};

)";

// Every range ends at alert, so emergencies pass no level filter, and f_0 passes only alert.
constexpr std::string_view filters = R"(#Filter names correspond to logging levels:
#f_0 - critical; f_1 - error; f_2 - warning; f_3 - notice; f_4 - info; f_5 - debug;

filter f_0 { level(alert); };
filter f_1 { level(err..alert); };
filter f_2 { level(warning..alert); };
filter f_3 { level(notice..alert); };
filter f_4 { level(info..alert); };
filter f_5 { level(debug..alert); };
filter ignore_systemd_fsck { not program(systemd-fsck); };
filter f_dhcpd { program('^dhcpd$'); };

)";

constexpr std::string_view fixed_destinations = R"(destination d_console {
    file("/dev/console");
};

destination d_file {
    file("`log_path`");
};

destination d_dhcpd {
    file("/tmp/dhcpd_log/DHCPD.log");
};

)";

constexpr std::string_view backtrace_route = R"(log {
    source(s_local_backtrace);
    destination(d_file);
    destination(d_console);
};

)";

constexpr std::string_view dhcp_route = R"(log {
    source(s_local);
    filter(f_dhcpd);
    destination(d_dhcpd);
};
)";

constexpr std::string_view route_from_local = "log {\n    source(s_local);\n";
constexpr std::string_view without_fsck = "    filter (ignore_systemd_fsck);\n";
constexpr std::string_view route_end = "};\n\n";

constexpr std::string_view unused_receiver = "0.0.0.0";

// Terminal 15 has a slot but no output.
constexpr std::size_t shells_with_output = 15;

template <std::size_t N>
std::string_view text_of(char const (&buffer)[N]) {
    return {buffer, strnlen(buffer, N)};
}

template <class... Args>
void append(std::string& out, fmt::format_string<Args...> format, Args&&... args) {
    fmt::format_to(std::back_inserter(out), format, std::forward<Args>(args)...);
}

template <class Action>
void for_each_shell(OpenShells const& shells, Action action) {
    for (std::size_t number = 0; number < shells_with_output; ++number) {
        if (shells[number]) {
            action(number);
        }
    }
}

void append_definitions(std::string& out, decltype(SyslogSettings::file) const& file) {
    append(out, "@define log_path \"{}system.log.1\"\n", text_of(file.path));
    append(out, "@define file_size \"{}\"\n\n", file.size);
}

void append_network_destinations(std::string& out, SyslogNetworkDest const& remote) {
    for (int number = 1; auto const& receiver : remote.dest) {
        append(out, "destination d_network{} {{\n    network(\n", number++);
        append(out, "    \"{}\" port({})\n", text_of(receiver.address), receiver.port);
        out += "    transport(udp)\n    flags(syslog-protocol)\n    ip-protocol(4));\n};\n\n";
    }
}

void append_shell_destinations(std::string& out, OpenShells const& shells) {
    for_each_shell(shells, [&](std::size_t number) {
        append(out, "destination d_rsh_{0} {{\n    file(\"/dev/pts/{0}\");\n}};\n\n", number);
    });
}

void append_level_filter(std::string& out, std::uint16_t level) {
    append(out, "    filter (f_{});\n", level);
}

void append_route(std::string& out, std::uint16_t level, std::string_view destination) {
    out += route_from_local;
    out += without_fsck;
    append_level_filter(out, level);
    append(out, "    destination({});\n", destination);
    out += route_end;
}

void append_network_route(std::string& out, SyslogNetworkDest const& remote) {
    out += route_from_local;
    append_level_filter(out, remote.level);
    for (int number = 1; auto const& receiver : remote.dest) {
        if (text_of(receiver.address) != unused_receiver) {
            append(out, "    destination(d_network{});\n", number);
        }
        ++number;
    }
    out += route_end;
}

void append_shell_route(std::string& out, std::uint16_t level, OpenShells const& shells) {
    out += route_from_local;
    out += without_fsck;
    append_level_filter(out, level);
    for_each_shell(shells, [&](std::size_t number) { append(out, "    destination(d_rsh_{});\n", number); });
    out += route_end;
}

} // namespace

bool passes(unsigned level, unsigned severity) {
    constexpr unsigned alert = 1;
    return severity >= alert && severity <= (level == 0 ? alert : level + 2); // level 1 is error, 3 in syslog
}

std::string syslog_ng_text(SyslogSettings const& settings, OpenShells const& shells) {
    std::string out;
    out += header;
    append_definitions(out, settings.file);
    out += options_and_sources;
    out += filters;
    out += fixed_destinations;
    append_network_destinations(out, settings.remote);
    append_shell_destinations(out, shells);
    append_route(out, settings.file.level, "d_file");
    append_route(out, settings.console.level, "d_console");
    append_network_route(out, settings.remote);
    out += backtrace_route;
    append_shell_route(out, settings.rsh.level, shells);
    out += dhcp_route;
    return out;
}

} // namespace xpon::log_config
