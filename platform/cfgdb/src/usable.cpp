#include "xpon/cfgdb/usable.hpp"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include <arpa/inet.h>

#include "core/failure.hpp"
#include "xpon/cfgdb/log_folder.hpp"
#include "xpon/cfgdb/printable.hpp"

namespace xpon::cfgdb {

namespace {

std::optional<std::string> receiver_flaw(std::string const& address) {
    in_addr_t const number = ntohl(inet_addr(address.c_str()));
    if (number == INADDR_ANY) { // unused
        return std::nullopt;
    }
    if (number == INADDR_BROADCAST) {
        return address + " is the broadcast address";
    }
    if (IN_MULTICAST(number)) {
        return address + " is a multicast address";
    }
    if (number >> 24U == 0) {
        return address + " is no address of a host";
    }
    return std::nullopt;
}

std::optional<std::string> folder_flaw(std::filesystem::path const& folder) {
    if (auto const flaw = log_folder_flaw(folder)) {
        return *flaw + ", and whoever can replace a file there decides what syslog-ng writes to as root";
    }
    if (std::ranges::find(folder, "..") != folder.end()) {
        return "\"..\" hides where the log is written to";
    }
    std::error_code unknown;
    auto const real = std::filesystem::weakly_canonical(folder, unknown).relative_path();
    for (auto const* const top : {"proc", "sys", "dev"}) {
        if (!real.empty() && *real.begin() == top) {
            return std::string{"/"} + top + " holds no log files";
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<std::string> flaw_of(Setting const& setting, std::string const& value) {
    return setting.kind == Kind::Folder    ? folder_flaw(value)
           : setting.kind == Kind::Address ? receiver_flaw(value)
                                           : std::nullopt;
}

core::Result<void> check_usable(Change const& change) {
    auto const& [setting, old_value, new_value] = change;
    auto const flaw = flaw_of(*setting, new_value);
    if (!flaw) {
        return core::success();
    }
    return core::fail(
        core::Error::InvalidInputArg, "{}: {}: {}", setting->path,
        not_allowed(printable(new_value), setting->kind == Kind::Folder
                                              ? "a folder that only root can write to, such as " +
                                                    to_text(setting->kind, setting->default_value)
                                              : "the address of a host, or 0.0.0.0 for an unused receiver"),
        *flaw);
}

} // namespace xpon::cfgdb
