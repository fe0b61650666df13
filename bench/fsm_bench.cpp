// Measures the largest module with all of its 4124 levels at debug: reading its record from the database and
// building its rules, each compared with the least code that gives the same bytes.

#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <sqlite3.h>

#include "kit/scratch_folder.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"
#include "xpon/cfgdb/transaction.hpp"
#include "xpon/log_config/zlog/fsm_log_module.hpp"
#include "xpon/log_config/zlog/zlog_config_generator.hpp"

namespace xpon {
namespace {

constexpr unsigned short global_row[3]{};

/// A database in which every level of the module is debug.
class FullDatabase {
  public:
    FullDatabase() {
        cfgdb::Transaction transaction;
        if (!transaction.set("module.fsm_pon.*", "debug").has_value() ||
            !transaction.commit(folder.path()).has_value()) {
            throw std::runtime_error("no database to measure");
        }
    }

    std::filesystem::path const& path() const { return folder.path(); }

  private:
    test::ScratchFolder folder;
};

ModuleFsmPon everything_debug() {
    ModuleFsmPon descriptor;
    std::vector<std::uint16_t> const levels(sizeof descriptor / sizeof(std::uint16_t), 5);
    std::memcpy(&descriptor, levels.data(), sizeof descriptor);
    return descriptor;
}

void read_record(benchmark::State& state) {
    FullDatabase const database;
    cfgdb::CfgDbWrapper const wrapper{"BENCH", database.path()};
    while (state.KeepRunning()) {
        ModuleFsmPon descriptor{};
        if (getRunDb_CommonGCfg_logging_module_fsm_pon(wrapper.db(), &descriptor, global_row) != 0) {
            state.SkipWithError("cannot read");
        }
        benchmark::DoNotOptimize(descriptor);
    }
}
BENCHMARK(read_record)->Unit(benchmark::kMicrosecond);

void read_record_floor(benchmark::State& state) {
    FullDatabase const database;
    sqlite3* connection = nullptr;
    sqlite3_open((database.path() / "running.db").c_str(), &connection);
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(connection,
                       "SELECT path, value FROM setting WHERE path >= 'module.fsm_pon.' ORDER BY path", -1,
                       &statement, nullptr);
    while (state.KeepRunning()) {
        std::int64_t rows = 0;
        while (sqlite3_step(statement) == SQLITE_ROW) {
            benchmark::DoNotOptimize(sqlite3_column_text(statement, 0));
            benchmark::DoNotOptimize(sqlite3_column_int64(statement, 1));
            ++rows;
        }
        sqlite3_reset(statement);
        if (rows != 4124) {
            state.SkipWithError("rows are missing");
        }
    }
    sqlite3_finalize(statement);
    sqlite3_close(connection);
}
BENCHMARK(read_record_floor)->Unit(benchmark::kMicrosecond);

void build_text(benchmark::State& state) {
    auto const descriptor = std::any{everything_debug()};
    log_config::FsmLogModule module{everything_debug(), std::make_shared<log_config::ZlogConfigGenerator>()};
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(module.update_config(descriptor));
    }
    state.counters["bytes"] = static_cast<double>(module.get_config().size());
}
BENCHMARK(build_text)->Unit(benchmark::kMicrosecond);

void build_text_floor(benchmark::State& state) {
    log_config::FsmLogModule const module{everything_debug(),
                                          std::make_shared<log_config::ZlogConfigGenerator>()};
    std::vector<std::string> lines;
    for (std::size_t start = 0; start < module.get_config().size();) {
        auto const end = module.get_config().find('\n', start) + 1;
        lines.push_back(module.get_config().substr(start, end - start));
        start = end;
    }
    while (state.KeepRunning()) {
        std::string text;
        text.reserve(module.get_config().size());
        for (auto const& line : lines) {
            text += line;
        }
        benchmark::DoNotOptimize(text.data());
    }
    state.counters["lines"] = static_cast<double>(lines.size());
}
BENCHMARK(build_text_floor)->Unit(benchmark::kMicrosecond);

/// The obvious way: each line is formatted by itself.
void build_text_by_format(benchmark::State& state) {
    static constexpr std::array<std::pair<char const*, char const*>, 6> rules{{
        {"FATAL", " for_fatal"},
        {"ERROR", ""},
        {"WARN", " for_info"},
        {"NOTICE", " for_info"},
        {"INFO", " for_info"},
        {"DEBUG", ""},
    }};
    log_config::FsmLogModule const module{everything_debug(),
                                          std::make_shared<log_config::ZlogConfigGenerator>()};
    std::vector<std::string> categories;
    for (std::size_t start = 0; start < module.get_config().size();) {
        auto const line = std::string_view{module.get_config()}.substr(
            start, module.get_config().find('\n', start) - start);
        if (line.find(".=FATAL ") != std::string_view::npos) {
            categories.emplace_back(line.substr(0, line.find(".=")));
        }
        start += line.size() + 1;
    }
    while (state.KeepRunning()) {
        std::string text;
        for (auto const& category : categories) {
            for (auto const& [level, format] : rules) {
                text += fmt::format("{}.={} >syslog, LOG_LOCAL0;{}\n", category, level, format);
            }
        }
        if (text != module.get_config()) {
            state.SkipWithError("the text differs");
        }
        benchmark::DoNotOptimize(text.data());
    }
}
BENCHMARK(build_text_by_format)->Unit(benchmark::kMicrosecond);

/// For scripts/bench: prints the text, or builds it so many times for valgrind to count instructions.
int other_work(std::string_view option, int times) {
    log_config::FsmLogModule module{everything_debug(), std::make_shared<log_config::ZlogConfigGenerator>()};
    if (option == "--print-text") {
        fmt::print("{}", module.get_config());
    }
    auto const descriptor = std::any{everything_debug()};
    for (int round = 0; option == "--build-text" && round < times; ++round) {
        benchmark::DoNotOptimize(module.update_config(descriptor));
    }
    return 0;
}

} // namespace
} // namespace xpon

int main(int argc, char** argv) {
    std::string_view const option{argc > 1 ? argv[1] : ""};
    if (option == "--print-text" || option == "--build-text") {
        return xpon::other_work(option, argc > 2 ? std::atoi(argv[2]) : 0);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
