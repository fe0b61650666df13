#include "record.hpp"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

#include <fmt/compile.h>
#include <fmt/format.h>

#include "xpon/cfgdb/module_table.hpp"
#include "xpon/cfgdb/syslog_settings.hpp"

namespace xpon::cfgdb {

namespace {

// The levels that stand as defaults.
constexpr std::int64_t error = 1;
constexpr std::int64_t warning = 2;
constexpr std::int64_t notice = 3;
constexpr std::int64_t info = 4;
constexpr std::int64_t debug = 5;

struct SyslogRow {
    std::string_view name;
    Kind kind;
    std::size_t offset;
    Value default_value;
};

struct SyslogRecord {
    std::string_view prefix;
    SyslogField field;
    std::size_t size;
    std::vector<SyslogRow> settings;
};

std::vector<SyslogRecord> syslog_records() {
    constexpr auto address = [](std::size_t receiver) {
        return offsetof(SyslogNetworkDest, dest) + receiver * sizeof(SyslogNetworkDest::Receiver);
    };
    constexpr auto port = [address](std::size_t receiver) {
        return address(receiver) + offsetof(SyslogNetworkDest::Receiver, port);
    };
    // clang-format off
    return {
        {"syslog.file.", file_field, sizeof(SyslogFileDest), {
            {"path",  Kind::Folder, offsetof(SyslogFileDest, path),  "/var/log/"},
            {"size",  Kind::Size,   offsetof(SyslogFileDest, size),  1048576},
            {"level", Kind::Level,  offsetof(SyslogFileDest, level), info},
        }},
        {"syslog.console.", console_field, sizeof(SyslogConsoleDest), {
            {"level", Kind::Level, offsetof(SyslogConsoleDest, level), error},
        }},
        {"syslog.remote.", remote_field, sizeof(SyslogNetworkDest), {
            {"1.address", Kind::Address, address(0), "0.0.0.0"},
            {"1.port",    Kind::Port,    port(0),    514},
            {"2.address", Kind::Address, address(1), "0.0.0.0"},
            {"2.port",    Kind::Port,    port(1),    514},
            {"3.address", Kind::Address, address(2), "0.0.0.0"},
            {"3.port",    Kind::Port,    port(2),    514},
            {"level",     Kind::Level,   offsetof(SyslogNetworkDest, level), notice},
        }},
        {"syslog.kernel.", kernel_field, sizeof(SyslogKernelDest), {
            {"level", Kind::Level, offsetof(SyslogKernelDest, level), warning},
        }},
        {"syslog.rsh.", rsh_field, sizeof(SyslogRshDest), {
            {"level", Kind::Level, offsetof(SyslogRshDest, level), notice},
        }},
    };
    // clang-format on
}

std::int64_t default_level(Module const& module) {
    // The daemon's own routine notes are few, and its levels cannot be set.
    return module.descriptor == "ModuleLogConfig" ? debug : notice;
}

/// The whole table, made once. What it hands out points into it, so it stays where it is.
class Layout {
  public:
    Layout() {
        settings.reserve(sizeof(ModuleFsmPon)); // twice as many as its levels, for all the others too
        for (auto const& record : syslog_records()) {
            begin(std::string{record.prefix}, record.field, record.size);
            for (auto const& row : record.settings) {
                add(row.name, row.kind, row.offset, row.default_value);
            }
        }
        for (auto const& module : modules()) {
            add_module(module);
        }
        finish();
    }
    Layout(Layout const&) = delete;
    Layout& operator=(Layout const&) = delete;

    std::vector<Setting> settings;
    std::vector<Setting const*> by_path;
    std::vector<Record> records;

  private:
    void begin(std::string prefix, std::uint32_t field_id, std::size_t size) {
        records.push_back({std::move(prefix), field_id, {}, {}, std::vector<std::byte>(size)});
    }

    void add(std::string_view name, Kind kind, std::size_t offset, Value const& default_value) {
        auto& record = records.back();
        settings.push_back({record.prefix + std::string{name}, kind, default_value, record.field_id, offset});
        put(settings.back(), default_value, record.defaults);
    }

    void add_module(Module const& module) {
        bool const fsm = module.descriptor == "ModuleFsmPon";
        begin(fmt::format("module.{}.", module.name), module.field_id,
              fsm ? sizeof(ModuleFsmPon) : module.subjects.size() * sizeof(std::uint16_t));
        Value const level{default_level(module)};
        for (std::size_t i = 0; i < module.subjects.size(); ++i) {
            add(module.subjects[i], Kind::Level, i * sizeof(std::uint16_t), level);
        }
        if (fsm) {
            add_pon_levels(level);
        }
    }

    void add_pon_levels(Value const& level) {
        add("olt", Kind::Level, offsetof(ModuleFsmPon, olt), level);
        for (std::size_t port = 0; port < std::extent_v<decltype(ModuleFsmPon::port)>; ++port) {
            add(fmt::format("port.{}", port + 1), Kind::Level,
                offsetof(ModuleFsmPon, port) + port * sizeof(std::uint16_t), level);
        }
        std::size_t offset = offsetof(ModuleFsmPon, ont);
        for (std::size_t port = 0; port < std::extent_v<decltype(ModuleFsmPon::ont)>; ++port) {
            for (std::size_t ont = 0; ont < std::extent_v<decltype(ModuleFsmPon::ont), 1>; ++ont) {
                add(fmt::format(FMT_COMPILE("ont.{}.{}"), port + 1, ont + 1), Kind::Level, offset, level);
                offset += sizeof(std::uint16_t);
            }
        }
    }

    void finish() {
        // The settings of a record are those that begin with its prefix: one run in either order.
        auto first = settings.begin();
        for (auto& record : records) {
            auto const last = std::find_if_not(first, settings.end(), [&record](Setting const& setting) {
                return setting.path.starts_with(record.prefix);
            });
            record.settings = {first, last};
            first = last;
        }
        std::vector<Record*> sorted(records.size());
        std::ranges::transform(records, sorted.begin(), [](auto& record) { return &record; });
        std::ranges::sort(sorted, {}, [](auto const* record) { return record->prefix; });
        by_path.reserve(settings.size());
        for (auto* const record : sorted) {
            record->by_path = append_by_path(*record);
        }
    }

    std::span<Setting const* const> append_by_path(Record const& record) {
        auto const before = by_path.size();
        std::ranges::transform(record.settings, std::back_inserter(by_path),
                               [](auto const& setting) { return &setting; });
        auto const added = std::span{by_path}.subspan(before);
        std::ranges::sort(added, {}, &Setting::path);
        return added;
    }
};

Layout const& layout() {
    static auto const& table = *new Layout; // never destroyed: to free 4000 paths would only delay the exit
    return table;
}

template <class T>
void put_number(std::int64_t number, std::span<std::byte> at) {
    auto const narrow = static_cast<T>(number);
    std::memcpy(at.first(sizeof narrow).data(), &narrow, sizeof narrow);
}

void put_text(std::string const& text, std::span<std::byte> at) {
    std::ranges::fill(at, std::byte{0});
    std::memcpy(at.first(text.size()).data(), text.data(), text.size());
}

} // namespace

std::span<Setting const> settings() {
    return layout().settings;
}

std::span<Setting const* const> settings_by_path() {
    return layout().by_path;
}

Setting const* find_setting(std::string_view path) {
    auto const& by_path = layout().by_path;
    auto const found = std::ranges::lower_bound(by_path, path, {}, &Setting::path);
    return found != by_path.end() && (*found)->path == path ? *found : nullptr;
}

std::span<Record const> records() {
    return layout().records;
}

Record const& syslog_record(SyslogField field) {
    return records()[field - file_field];
}

Record const& module_record(Modules_names module) {
    constexpr std::size_t syslog_records = rsh_field - file_field + 1;
    auto const* const found = find_module(module);
    return records()[syslog_records + static_cast<std::size_t>(found - modules().data())];
}

std::string field_name(std::uint32_t field_id) {
    auto const record = std::ranges::find(records(), field_id, &Record::field_id);
    return field_id == 0 || record == records().end() ? fmt::format("field {}", field_id)
                                                      : record->prefix.substr(0, record->prefix.size() - 1);
}

void put(Setting const& setting, Value const& value, std::span<std::byte> record) {
    auto const at = record.subspan(setting.offset);
    switch (setting.kind) {
    case Kind::Level:
    case Kind::Port:
        return put_number<std::uint16_t>(std::get<std::int64_t>(value), at);
    case Kind::Size:
        return put_number<std::uint32_t>(std::get<std::int64_t>(value), at);
    case Kind::Folder:
        return put_text(std::get<std::string>(value), at.first(sizeof SyslogFileDest::path));
    case Kind::Address:
        return put_text(std::get<std::string>(value), at.first(sizeof SyslogNetworkDest::Receiver::address));
    }
}

std::optional<std::string> contradiction(Record const& record, std::span<std::byte const> filled) {
    if (record.field_id != remote_field) {
        return std::nullopt;
    }
    SyslogNetworkDest remote{};
    std::memcpy(&remote, filled.first(sizeof remote).data(), sizeof remote);
    constexpr std::size_t receivers = std::extent_v<decltype(remote.dest)>;
    for (std::size_t i = 0; i < receivers; ++i) {
        for (std::size_t k = i + 1; k < receivers; ++k) {
            auto const& one = remote.dest[i];
            auto const& other = remote.dest[k];
            std::string_view const address = one.address;
            if (address != "0.0.0.0" && address == other.address && one.port == other.port) {
                return fmt::format("syslog.remote.{} and syslog.remote.{} are both {} port {}; receivers "
                                   "must differ in address or port",
                                   i + 1, k + 1, address, one.port);
            }
        }
    }
    return std::nullopt;
}

} // namespace xpon::cfgdb
