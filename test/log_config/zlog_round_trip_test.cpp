// What the daemon writes is what a module's logger does.

#include <random>
#include <sstream>

#include <gmock/gmock.h>

#include "kit/fake_ipc.hpp"
#include "kit/fake_logger.hpp"
#include "kit/golden.hpp"
#include "kit/matchers.hpp"
#include "kit/scratch_folder.hpp"
#include "xpon/cfgdb/module_table.hpp"
#include "xpon/cfgdb/transaction.hpp"
#include "xpon/log_config/zlog_files/config_files.hpp"
#include "xpon/log_config/zlog_files/generate_zlog_config_files.hpp"
#include "xpon/logger/logger.hpp"

namespace xpon::log_config {
namespace {

using core::LogLevel;
using test::IsOk;

/// A file's categories in their order, each once.
std::vector<std::string> categories_of(std::string_view file) {
    std::vector<std::string> categories;
    std::istringstream text{test::golden("zlog_defaults/" + std::string{file})};
    for (std::string line; std::getline(text, line);) {
        if (auto const end = line.find(".=FATAL "); end != std::string::npos) {
            categories.push_back(line.substr(0, end));
        }
    }
    return categories;
}

class ZlogRoundTrip : public testing::TestWithParam<unsigned> {
  protected:
    /// Stores a random level for every setting that can be set, and remembers the level of each.
    void store_random_levels() {
        std::mt19937 random{GetParam()};
        cfgdb::Transaction transaction;
        for (auto const& setting : cfgdb::settings()) {
            if (!setting.path.starts_with("module.")) {
                continue;
            }
            auto& level = levels[setting.path];
            level = static_cast<int>(std::get<std::int64_t>(setting.default_value));
            if (!setting.built_in()) {
                level = static_cast<int>(random() % 6);
                ASSERT_THAT(transaction.set(setting.path, std::to_string(level)), IsOk());
            }
        }
        ASSERT_THAT(transaction.commit(scratch / "db"), IsOk());
    }

    /// The levels of a file's categories, in their order.
    std::vector<int> levels_of(ConfigFileEntry const& file) {
        LogModules modules;
        auto const database = std::make_shared<cfgdb::CfgDbWrapper>("TEST", scratch / "db");
        EXPECT_THAT(file.add_modules(modules, database, std::make_shared<NoText>()), IsOk());
        std::vector<int> all;
        for (auto const& [module, _] : modules) {
            auto const prefix = "module." + std::string{cfgdb::find_module(module)->name} + ".";
            for (auto const& setting : cfgdb::settings()) { // in the order of the module's record
                if (setting.path.starts_with(prefix)) {
                    all.push_back(levels.at(setting.path));
                }
            }
        }
        return all;
    }

    class NoText : public ILogConfigGenerator {
      public:
        std::string generate(std::string_view /*category*/, unsigned short /*level*/) override { return {}; }
        std::string_view get_header() const override { return {}; }
    };

    test::ScratchFolder scratch;
    std::map<std::string, int> levels; // by the path of the setting
};

INSTANTIATE_TEST_SUITE_P(RandomLevels, ZlogRoundTrip, testing::Range(1U, 6U));

TEST_P(ZlogRoundTrip, EveryCategoryOfEveryFileLogsExactlyItsLevels) {
    store_random_levels();
    auto const folder = scratch / "zlog/"; // the slash belongs to it
    std::filesystem::create_directory(folder);
    ASSERT_THAT(generate_zlog_config_files_in(
                    folder.string(), std::make_shared<cfgdb::CfgDbWrapper>("TEST", scratch / "db"),
                    std::make_shared<test::FakeIpc>(), std::make_shared<test::FakeLogger>()),
                IsOk());
    for (auto const& file : zlog_files) {
        auto const context = logger::Logger::create_context(folder / std::string{file.name}, "TEST", 0);
        ASSERT_THAT(context, IsOk());
        auto const categories = categories_of(file.name);
        auto const expected = levels_of(file);
        ASSERT_EQ(categories.size(), expected.size()) << file.name;
        for (std::size_t index = 0; index < categories.size(); ++index) {
            logger::Logger const module_logger{categories[index]};
            for (int severity = 0; severity <= 5; ++severity) { // 0 critical is the logger's highest level
                EXPECT_EQ(module_logger.is_enabled(static_cast<LogLevel>(5 - severity)),
                          severity <= expected[index])
                    << file.name << ' ' << categories[index] << ' ' << severity;
            }
        }
    }
}

} // namespace
} // namespace xpon::log_config
