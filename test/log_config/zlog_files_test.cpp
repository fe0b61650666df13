#include "xpon/log_config/zlog_files/generate_zlog_config_files.hpp"

#include <cerrno>
#include <set>
#include <sstream>

#include <gmock/gmock.h>

#include "core/failure.hpp"
#include "kit/accessor_spy.hpp"
#include "kit/fake_ipc.hpp"
#include "kit/fake_logger.hpp"
#include "kit/golden.hpp"
#include "kit/matchers.hpp"
#include "kit/names_in.hpp"
#include "kit/scratch_folder.hpp"
#include "xpon/cfgdb/module_table.hpp"
#include "xpon/cfgdb/transaction.hpp"
#include "xpon/log_config/zlog/zlog_config_generator.hpp"
#include "xpon/log_config/zlog_files/catalogue.hpp"
#include "xpon/log_config/zlog_files/config_files.hpp"

namespace xpon::log_config {
namespace {

using core::Error;
using core::LogLevel;
using test::AccessorSpy;
using test::FakeIpc;
using test::FakeLogger;
using test::golden;
using test::IsError;
using test::IsOk;
using test::read_file;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class ZlogFilesTest : public testing::Test {
  protected:
    ZlogFilesTest() { std::filesystem::create_directory(files_folder); }

    auto generate() { return generate_zlog_config_files_in(folder(), cfgdb, ipc, logger); }
    std::string folder() const { return files_folder.string() + "/"; }

    Result<void> add_file(GenerateModulesFn add_modules) {
        return add_config_file(folder() + "X.conf", Modules_names{5}, cfgdb, logger, ipc, generator, files,
                               std::move(add_modules));
    }

    std::set<std::string> on_disk() const { return test::names_in(files_folder); }

    /// The names of the first `count` files of the table.
    static std::set<std::string> first_files(std::size_t count) {
        std::set<std::string> names;
        for (std::size_t index = 0; index < count; ++index) {
            names.emplace(zlog_files.at(index).name);
        }
        return names;
    }

    test::ScratchFolder scratch;
    std::filesystem::path files_folder = scratch / "zlog";
    std::shared_ptr<cfgdb::CfgDbWrapper> cfgdb =
        std::make_shared<cfgdb::CfgDbWrapper>("TEST", scratch / "db");
    std::shared_ptr<FakeIpc> ipc = std::make_shared<FakeIpc>();
    std::shared_ptr<FakeLogger> logger = std::make_shared<FakeLogger>();
    std::shared_ptr<ILogConfigGenerator> generator = std::make_shared<ZlogConfigGenerator>();
    std::vector<std::unique_ptr<ILogConfigFile>> files;
    AccessorSpy spy;
};

TEST_F(ZlogFilesTest, AFreshDatabaseGivesTheDefaultFiles) {
    auto const generated = generate();
    ASSERT_THAT(generated, IsOk());
    EXPECT_THAT(generated.value(), SizeIs(26));
    EXPECT_EQ(on_disk(), first_files(26));
    for (auto const& file : zlog_files) {
        EXPECT_EQ(read_file(folder() + std::string{file.name}),
                  golden("zlog_defaults/" + std::string{file.name}))
            << file.name;
    }
    EXPECT_THAT(ipc->sent(), IsEmpty());
}

/// For the k-th level of module m, one that differs from the default.
int changed_level(std::uint32_t module, std::size_t word) {
    auto const level = static_cast<int>((module + word) % 5);
    return level >= 3 ? level + 1 : level;
}

TEST_F(ZlogFilesTest, EveryStoredSettingReachesItsFile) {
    cfgdb::Transaction transaction;
    for (auto const& module : cfgdb::modules()) {
        if (module.built_in()) {
            continue;
        }
        for (auto const& setting : cfgdb::settings()) {
            if (setting.field_id == module.field_id) {
                auto const level = changed_level(module.value, setting.offset / 2);
                ASSERT_THAT(transaction.set(setting.path, std::to_string(level)), IsOk());
            }
        }
    }
    ASSERT_THAT(transaction.commit(scratch / "db"), IsOk());
    ASSERT_THAT(generate(), IsOk());
    for (auto const& file : zlog_files) {
        EXPECT_EQ(read_file(folder() + std::string{file.name}),
                  golden("zlog_changed/" + std::string{file.name}))
            << file.name;
    }
}

TEST_F(ZlogFilesTest, SuccessIsNotedForEachFileInTheOrderOfTheTable) {
    ASSERT_THAT(generate(), IsOk());
    std::vector<std::string> expected;
    for (auto const& file : zlog_files) {
        expected.push_back("Successfully generate \"" + folder() + std::string{file.name} + "\" ");
    }
    EXPECT_EQ(logger->texts(), expected);
    EXPECT_EQ(logger->lines().front().level, LogLevel::Debug);
}

TEST_F(ZlogFilesTest, TheObjectsTakeChangesAndTellTheirReaders) {
    auto const generated = generate();
    ASSERT_THAT(generated, IsOk());
    ModuleChanges const changes{{Modules_names{9}, ModuleSnmp{}}};
    for (auto const& file : generated.value()) {
        EXPECT_THAT(file->apply_new_config(changes), IsOk());
    }
    ASSERT_THAT(ipc->sent(), SizeIs(1));
    EXPECT_EQ(ipc->sent().front().payload.at(0), std::byte{9});
    EXPECT_NE(read_file(folder() + "SNMP.conf"), golden("zlog_defaults/SNMP.conf"));
}

TEST_F(ZlogFilesTest, TheFirstObjectIsForDnaAndTheLastForNetserve) {
    auto const generated = generate();
    ASSERT_THAT(generated, IsOk());
    EXPECT_THAT(generated.value().front()->apply_new_config({{Modules_names{3}, ModuleIgmp{}}}), IsOk());
    EXPECT_THAT(generated.value().back()->apply_new_config({{Modules_names{43}, ModuleNetserve{}}}), IsOk());
    auto const sent = ipc->sent();
    ASSERT_THAT(sent, SizeIs(2));
    EXPECT_EQ(sent[0].payload.at(0), std::byte{1}) << "the file's own module, not the changed one";
    EXPECT_EQ(sent[1].payload.at(0), std::byte{43});
    EXPECT_NE(read_file(folder() + "DNA.conf"), golden("zlog_defaults/DNA.conf"));
    EXPECT_NE(read_file(folder() + "NETSERVE.conf"), golden("zlog_defaults/NETSERVE.conf"));
}

TEST_F(ZlogFilesTest, AMissingFolderStopsThePassAtTheFirstFile) {
    std::filesystem::remove(files_folder);
    EXPECT_THAT(generate(), IsError(Error::CommonError, ""));
    EXPECT_EQ(logger->texts().front(), "Error: CommonError. Message: Failed create \"" + folder() +
                                           "DNA.conf\" with: Failed write config file for module 1.");
}

TEST_F(ZlogFilesTest, ASessionManagerRecordIsRefusedByTheFileOfTheSnmpModule) {
    auto const generated = generate();
    ASSERT_THAT(generated, IsOk());
    ModuleChanges const changes{{Modules_names{9}, ModuleSessionMgr{}}};
    for (std::size_t index = 0; index < zlog_files.size(); ++index) {
        auto const result = generated.value()[index]->apply_new_config(changes);
        if (zlog_files.at(index).name == "SNMP.conf") {
            EXPECT_THAT(result, IsError(Error::CommonError, "Failed update_config for module 9"));
        } else {
            EXPECT_THAT(result, IsOk());
        }
    }
    EXPECT_THAT(ipc->sent(), IsEmpty());
}

// --- failures, at each place of the pass

TEST_F(ZlogFilesTest, AFailingSubjectLookupStopsThePassAtItsFile) {
    spy.fail("get_switch_subjects_from_index", -1);
    EXPECT_THAT(generate(), IsError(Error::CommonError, ""));
    EXPECT_EQ(on_disk(), first_files(19));
    auto const texts = logger->texts();
    ASSERT_THAT(texts, SizeIs(19 + 2));
    EXPECT_EQ(texts[19], "Error: CommonError. Message: Failed create modules for \"" + folder() +
                             "SWITCH.conf\" with: Failed generate submodules on Base obj for 16.");
    EXPECT_EQ(texts[20], "Error: CommonError");
}

TEST_F(ZlogFilesTest, AFailingStemLookupStopsThePassAtTheFirstFile) {
    spy.fail("get_modules_names_from_index", -1);
    EXPECT_THAT(generate(), IsError(Error::CommonError, ""));
    EXPECT_THAT(on_disk(), IsEmpty());
    EXPECT_EQ(logger->texts().front(), "Error: CommonError. Message: Failed create modules for \"" +
                                           folder() +
                                           "DNA.conf\" with: Failed generate submodules on Base obj for 1.");
}

TEST_F(ZlogFilesTest, AFailingReadStopsThePassWithTheNameOfItsRecord) {
    struct Row {
        char const* function;
        char const* record;
        std::size_t files_before;
    };
    Row const rows[] = {
        {"getRunDb_CommonGCfg_logging_module_dna", "ModuleDna", 0},
        {"getRunDb_CommonGCfg_logging_module_arp", "ModuleArp", 0},
        {"getRunDb_CommonGCfg_logging_module_fsm_pon", "ModuleFsmPon", 0},
        {"init_ModuleApiService", "ModuleApiService", 5},
        {"init_ModuleWatchdog", "ModuleWatchdog", 0},
        {"init_ModulePtable", "ModulePtable", 8},
        {"getRunDb_CommonGCfg_logging_module_cli", "ModuleCli", 8},
        {"init_ModuleAlarm", "ModuleAlarm", 4},
        {"getRunDb_CommonGCfg_logging_module_switch", "ModuleSwitch", 19},
        {"init_ModuleAaaConf", "ModuleAaaConf", 24},
        {"getRunDb_CommonGCfg_logging_module_netserve", "ModuleNetserve", 25},
    };
    for (auto const& row : rows) {
        std::filesystem::remove_all(files_folder);
        std::filesystem::create_directory(files_folder);
        spy.clear();
        spy.fail(row.function, -1, EIO);
        EXPECT_THAT(generate(), IsError(Error::CommonError, "")) << row.function;
        EXPECT_EQ(on_disk(), first_files(row.files_before)) << row.function;
        auto const texts = logger->texts();
        EXPECT_EQ(texts.at(texts.size() - 2),
                  fmt::format("Error: CommonError. Message: Failed get config for {}.", row.record));
    }
    errno = 0;
}

TEST_F(ZlogFilesTest, AFailingWriteStopsThePassAtItsFile) {
    std::filesystem::create_directory(files_folder / "SWITCH.conf");
    EXPECT_THAT(generate(), IsError(Error::CommonError, ""));
    EXPECT_EQ(on_disk(), first_files(20)); // the folder in the way of SWITCH.conf included
    auto const texts = logger->texts();
    EXPECT_EQ(texts.at(19), "Error: CommonError. Message: Failed create \"" + folder() +
                                "SWITCH.conf\" with: Failed write config file for module 16.");
}

TEST_F(ZlogFilesTest, TheFilesBehindAFailureKeepWhatTheyHeld) {
    test::write_file(files_folder / "NETSERVE.conf", "old");
    spy.fail("get_switch_subjects_from_index", -1);
    EXPECT_THAT(generate(), IsError(Error::CommonError, ""));
    EXPECT_EQ(read_file(files_folder / "NETSERVE.conf"), "old");
}

TEST_F(ZlogFilesTest, AnExceptionThatEscapesAddConfigFileIsLoggedAndBecomesException) {
    // The logger is the only thing left outside the two guards.
    class ThrowingLogger : public FakeLogger {
        bool is_enabled(LogLevel level) const override {
            if (level == LogLevel::Debug) {
                throw std::runtime_error("broken");
            }
            return true;
        }
    };
    auto const throwing = std::make_shared<ThrowingLogger>();
    logger = throwing;
    EXPECT_THAT(generate(), IsError(Error::Exception, ""));
    EXPECT_THAT(throwing->texts(),
                ElementsAre("An std::exception was thrown: broken ", "Error: Exception", "Error: Exception"));
}

TEST_F(ZlogFilesTest, AFailedPassLeavesNothingOpen) {
    auto const open_files = [] { return test::names_in("/proc/self/fd").size(); };
    spy.fail("get_switch_subjects_from_index", -1);
    auto const before = open_files();
    EXPECT_THAT(generate(), IsError(Error::CommonError, ""));
    EXPECT_EQ(open_files(), before);
    EXPECT_EQ(ipc.use_count(), 1) << "no file object is left that holds it";
}

// --- add_config_file

TEST_F(ZlogFilesTest, AddConfigFileReturnsTheErrorOfItsModules) {
    EXPECT_THAT(add_file([](auto&&...) -> Result<void> { return core::fail(Error::Empty, "none"); }),
                IsError(Error::Empty, "none"));
    EXPECT_THAT(files, IsEmpty());
    EXPECT_THAT(on_disk(), IsEmpty());
}

TEST_F(ZlogFilesTest, AddConfigFileTurnsExceptionsOfTheModulesIntoErrors) {
    EXPECT_THAT(
        add_file([](auto&&...) -> Result<void> { throw std::runtime_error("broken"); }),
        IsError(Error::CommonError, "Failed create modules for \"" + folder() + "X.conf\" with: broken"));
    EXPECT_THAT(add_file([](auto&&...) -> Result<void> { throw 7; }),
                IsError(Error::CommonError,
                        "Failed create modules for \"" + folder() + "X.conf\" with unknown exception"));
    EXPECT_THAT(files, IsEmpty());
}

TEST_F(ZlogFilesTest, AddConfigFileTurnsExceptionsOfTheFileIntoErrors) {
    class ThrowingModule : public ILogModule {
      public:
        std::string const& get_config() const override { throw 7; }
        Result<void> update_config(std::any const&) override { return core::success(); }
    };
    EXPECT_THAT(
        add_file([](LogModules& modules, auto&&...) -> Result<void> {
            modules[Modules_names{5}] = std::make_unique<ThrowingModule>();
            return core::success();
        }),
        IsError(Error::CommonError, "Failed create \"" + folder() + "X.conf\" with unknown exception"));
    std::filesystem::create_directory(files_folder / "X.conf");
    EXPECT_THAT(add_file([](auto&&...) -> Result<void> { return core::success(); }),
                IsError(Error::CommonError, "Failed create \"" + folder() +
                                                "X.conf\" with: Failed write config file for module 5"));
    EXPECT_THAT(files, IsEmpty());
}

TEST_F(ZlogFilesTest, AnAddingFunctionKeepsTheModulesBeforeTheOneThatFails) {
    spy.fail("getRunDb_CommonGCfg_logging_module_igmp", -1);
    LogModules modules;
    EXPECT_THAT(add_dna_module(modules, cfgdb, generator),
                IsError(Error::CommonError, "Failed get config for ModuleIgmp"));
    std::vector<std::uint32_t> added;
    for (auto const& [module, _] : modules) {
        added.push_back(module);
    }
    EXPECT_THAT(added, ElementsAre(1, 4, 5, 6, 7, 8, 17, 22, 24));
}

TEST_F(ZlogFilesTest, EveryFunctionOfTheLibraryCanFailTheFilesThatHoldItsModule) {
    std::map<std::string_view, std::set<Modules_names>> modules_of;
    for (auto const& file : zlog_files) {
        LogModules modules;
        ASSERT_THAT(file.add_modules(modules, cfgdb, generator), IsOk());
        for (auto const& [module, _] : modules) {
            modules_of[file.name].insert(module);
        }
    }
    auto const expect_failures = [&](std::string const& function, Modules_names module,
                                     std::string const& failure) {
        spy.clear();
        spy.fail(function, -1);
        for (auto const& file : zlog_files) {
            std::string seen;
            try {
                LogModules modules;
                auto const added = file.add_modules(modules, cfgdb, generator);
                seen = added.has_error() ? added.error().to_string() : "";
            } catch (std::runtime_error const& exception) {
                seen = exception.what();
            }
            auto const holds = modules_of[file.name].contains(module);
            EXPECT_THAT(seen, testing::HasSubstr(holds ? failure : "")) << function << ' ' << file.name;
            EXPECT_EQ(seen.empty(), !holds) << function << ' ' << file.name;
        }
    };
    unsigned short const key[3]{};
    catalogue::for_each([&]<class M, class S>(ModuleEntry<M, S> const& row) {
        M descriptor{};
        char name[15]{};
        spy.clear();
        EXPECT_EQ(row.read_descriptor(cfgdb->db(), &descriptor, key), 0);
        EXPECT_EQ(row.subject_name(name, S{}), 0);
        auto const functions = spy.calls();
        ASSERT_THAT(functions, SizeIs(2));
        expect_failures(functions[0], row.module, "Failed get config for ");
        expect_failures(
            functions[1], row.module,
            fmt::format("Failed generate submodules on Base obj for {}", static_cast<unsigned>(row.module)));
    });
}

// --- the tables

TEST_F(ZlogFilesTest, TheCatalogueIsTheCheckedInOne) {
    std::ostringstream out;
    out << "# module\tdescriptor\tstem\tsubjects, as they are looked up\n";
    catalogue::for_each([&]<class M, class S>(ModuleEntry<M, S> const& row) {
        char stem[15]{};
        EXPECT_EQ(get_modules_names_from_index(stem, row.module), 0);
        out << row.module << '\t' << cfgdb::find_module(row.module)->descriptor << '\t' << stem << '\t';
        for (int index = 0; index < row.subject_count; ++index) {
            char subject[15]{};
            EXPECT_EQ(row.subject_name(subject, static_cast<S>(index)), 0);
            out << (index == 0 ? "" : " ") << subject;
        }
        out << '\n';
    });

    out << "# file\tits module\tmodules, in the order written\n";
    std::size_t objects = 0;
    for (auto const& file : zlog_files) {
        LogModules modules;
        EXPECT_THAT(file.add_modules(modules, cfgdb, generator), IsOk());
        out << file.name << '\t' << file.module << '\t';
        for (char const* blank = ""; auto const& [module, _] : modules) {
            out << std::exchange(blank, " ") << module;
        }
        out << '\n';
        objects += modules.size();
    }

    std::set<std::string> categories;
    ASSERT_THAT(generate(), IsOk());
    for (auto const& file : zlog_files) {
        std::istringstream text{read_file(folder() + std::string{file.name})};
        for (std::string line; std::getline(text, line);) {
            if (auto const end = line.find(".=FATAL "); end != std::string::npos) {
                categories.insert(line.substr(0, end));
            }
        }
    }
    out << "# counts\nmodules\t" << catalogue::numbers.size() << "\nfiles\t" << zlog_files.size()
        << "\nobjects\t" << objects << "\ncategories\t" << categories.size() << '\n';
    EXPECT_EQ(out.str(), golden("catalogue.txt"));
}

} // namespace
} // namespace xpon::log_config
