#include "wanted.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <fstream>
#include <iterator>

#include <fmt/format.h>

#include "core/failure.hpp"
#include "xpon/cfgdb/syslog_settings.hpp"
#include "xpon/cfgdb/transaction.hpp"
#include "xpon/config_writer/i_config_writer.hpp"
#include "xpon/log_config/zlog/zlog_config_file.hpp"
#include "xpon/log_config/zlog/zlog_config_generator.hpp"

namespace xpon::logctl {

namespace {

using core::Error;
using core::fail;
using log_config::ConfigFileEntry;

constexpr unsigned short global_row[3]{};

/// Keeps the text instead of writing it.
class Captured : public config_writer::IConfigWriter {
  public:
    explicit Captured(std::string& into)
      : out{into} {}
    core::Result<void> write(std::string const& text) override {
        out = text;
        return core::success();
    }

  private:
    std::string& out;
};

} // namespace

core::Result<Wanted> Wanted::open(Context const& context) {
    try {
        return Wanted{context.database,
                      std::make_shared<cfgdb::CfgDbWrapper>("logctl", context.database, cfgdb::ReadOnly{})};
    } catch (std::exception const& exception) {
        return fail(Error::CommonError, "{}", exception.what());
    }
}

core::Result<std::string> Wanted::zlog_text(ConfigFileEntry const& file) const {
    OUTCOME_TRY(modules, modules_in(file));
    std::string text;
    log_config::ZlogConfigFile const written{std::make_unique<Captured>(text),
                                             std::make_shared<log_config::ZlogConfigGenerator>(), file.module,
                                             std::move(modules), nullptr};
    return text;
}

core::Result<std::string> Wanted::syslog_ng_text(log_config::OpenShells const& shells) const {
    SyslogSettings settings{};
    auto const* const db = database->db();
    if (getRunDb_CommonGCfg_logging_syslog_file(db, &settings.file, global_row) != 0 ||
        getRunDb_CommonGCfg_logging_syslog_console(db, &settings.console, global_row) != 0 ||
        getRunDb_CommonGCfg_logging_syslog_remote(db, &settings.remote, global_row) != 0 ||
        getRunDb_CommonGCfg_logging_syslog_rsh(db, &settings.rsh, global_row) != 0) {
        return unreadable("syslog.");
    }
    return log_config::syslog_ng_text(settings, shells);
}

core::Result<int> Wanted::kernel_level() const {
    constexpr int number_of_critical = 2;
    SyslogKernelDest kernel{};
    if (getRunDb_CommonGCfg_logging_syslog_kernel(database->db(), &kernel, global_row) != 0) {
        return unreadable("syslog.");
    }
    return kernel.level + number_of_critical;
}

bool Wanted::is_of_another_level(ConfigFileEntry const& file, std::string_view text) const {
    constexpr std::uint16_t levels = 6;
    auto modules = modules_in(file);
    if (modules.has_error() || modules.value().empty()) {
        return false;
    }
    auto& module = *modules.value().begin()->second;
    for (std::uint16_t self = 0; self < levels; ++self) {
        for (std::uint16_t ipc = 0; ipc < levels; ++ipc) {
            std::array<std::uint16_t, 2> const subjects{self, ipc};
            auto const descriptor = std::bit_cast<ModuleSessionMgr>(subjects);
            std::string expected{log_config::ZlogConfigGenerator{}.get_header()};
            if (module.update_config(descriptor).has_value() && expected + module.get_config() == text) {
                return true;
            }
        }
    }
    return false;
}

core::Result<std::vector<std::string>> Wanted::files_with(Modules_names module) const {
    std::vector<std::string> names;
    for (auto const& file : log_config::zlog_files) {
        OUTCOME_TRY(modules, modules_in(file));
        if (modules.contains(module)) {
            names.emplace_back(file.name);
        }
    }
    return names;
}

core::Result<log_config::LogModules> Wanted::modules_in(ConfigFileEntry const& file) const {
    log_config::LogModules modules;
    auto const generator = std::make_shared<log_config::ZlogConfigGenerator>();
    auto const added = core::caught([&] { return file.add_modules(modules, database, generator); });
    if (added.has_error()) {
        return unreadable("module.");
    }
    return modules;
}

core::ErrorPayload Wanted::unreadable(std::string_view group) const {
    std::vector<std::string> wrong;
    if (auto const stored = cfgdb::stored_settings(folder); stored.has_value()) {
        for (auto const& row : stored.value()) {
            if (row.setting != nullptr && !row.allowed && row.path.starts_with(group)) {
                wrong.push_back(fmt::format("{}: {} is stored, allowed is {}", row.path, row.value,
                                            cfgdb::allowed(row.setting->kind)));
            }
        }
    }
    constexpr std::size_t enough = 3;
    wrong.resize(std::min(wrong.size(), enough));
    return fail(Error::InvalidState, "{}",
                wrong.empty() ? "the stored settings cannot be used; logctl check tells why"
                              : fmt::format("{}", fmt::join(wrong, "; ")));
}

log_config::OpenShells shells_in(std::string_view conf) {
    log_config::OpenShells shells{};
    for (std::size_t number = 0; number < shells.size(); ++number) {
        shells.at(number) = conf.find(fmt::format("destination d_rsh_{} {{", number)) != conf.npos;
    }
    return shells;
}

std::optional<std::string> file_text(std::filesystem::path const& path) {
    std::ifstream file{path, std::ios::binary};
    std::string text{std::istreambuf_iterator<char>{file}, {}};
    return file.is_open() && !file.bad() ? std::optional{std::move(text)} : std::nullopt;
}

} // namespace xpon::logctl
