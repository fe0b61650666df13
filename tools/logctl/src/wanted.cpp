#include "wanted.hpp"

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
        return unreadable();
    }
    return log_config::syslog_ng_text(settings, shells);
}

core::Result<int> Wanted::kernel_level() const {
    constexpr int number_of_critical = 2;
    SyslogKernelDest kernel{};
    if (getRunDb_CommonGCfg_logging_syslog_kernel(database->db(), &kernel, global_row) != 0) {
        return unreadable();
    }
    return kernel.level + number_of_critical;
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
        return unreadable();
    }
    return modules;
}

core::ErrorPayload Wanted::unreadable() const {
    auto const stored = cfgdb::stored_settings(folder);
    if (stored.has_value()) {
        for (auto const& row : stored.value()) {
            if (row.setting != nullptr && !row.allowed) {
                return fail(Error::InvalidState, "{}: {} is stored, allowed is {}", row.path, row.value,
                            cfgdb::allowed(row.setting->kind));
            }
        }
    }
    return fail(Error::InvalidState, "the stored settings cannot be used; logctl check tells why");
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
