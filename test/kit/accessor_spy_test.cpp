#include "kit/accessor_spy.hpp"

#include <set>

#include <gmock/gmock.h>

#include "kit/matchers.hpp"
#include "kit/scratch_folder.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"
#include "xpon/cfgdb/module_table.hpp"
#include "xpon/cfgdb/syslog_settings.hpp"
#include "xpon/log_config/zlog_files/catalogue.hpp"

namespace xpon::test {
namespace {

using testing::EndsWith;

class AccessorSpyTest : public testing::Test {
  protected:
    /// What a call is seen as.
    template <class Call>
    std::string seen(Call const& call) {
        spy.clear();
        EXPECT_EQ(call(), 0);
        auto const calls = spy.calls();
        EXPECT_EQ(calls.size(), 1U);
        return calls.empty() ? "" : calls.front();
    }

    ScratchFolder folder;
    cfgdb::CfgDbWrapper cfgdb{"TEST", folder.path()};
    unsigned short key[3]{};
    AccessorSpy spy;
};

TEST_F(AccessorSpyTest, SeesEveryFunctionOfTheLibrary) {
    std::set<std::string> all;
    log_config::catalogue::for_each([&]<class M, class S>(log_config::ModuleEntry<M, S> const& row) {
        auto const& module = *cfgdb::find_module(row.module);
        M descriptor{};
        auto const read = seen([&] { return row.read_descriptor(cfgdb.db(), &descriptor, key); });
        auto const init = "init_" + std::string{module.descriptor};
        auto const reader = "getRunDb_CommonGCfg_logging_module_" + std::string{module.name};
        EXPECT_EQ(read, module.built_in() ? init : reader);
        EXPECT_EQ(row.field_id, module.field_id);
        all.insert({read, init}); // the daemon asks a stored module for no defaults

        char name[15]{};
        auto const lookup = seen([&] { return row.subject_name(name, S{}); });
        EXPECT_THAT(lookup, EndsWith("_subjects_from_index"));
        all.insert(lookup);
    });

    char stem[15]{};
    SyslogSettings settings{};
    auto const* const db = cfgdb.db();
    all.insert({
        seen([&] { return get_modules_names_from_index(stem, Modules_names{1}); }),
        seen([&] { return init_SyslogSettings(&settings); }),
        seen([&] { return init_SyslogNetworkDest(&settings.remote); }),
        seen([&] { return getRunDb_CommonGCfg_logging_syslog_file(db, &settings.file, key); }),
        seen([&] { return getRunDb_CommonGCfg_logging_syslog_console(db, &settings.console, key); }),
        seen([&] { return getRunDb_CommonGCfg_logging_syslog_remote(db, &settings.remote, key); }),
        seen([&] { return getRunDb_CommonGCfg_logging_syslog_kernel(db, &settings.kernel, key); }),
        seen([&] { return getRunDb_CommonGCfg_logging_syslog_rsh(db, &settings.rsh, key); }),
    });
    auto const& watched = AccessorSpy::functions();
    EXPECT_EQ(all, (std::set<std::string>{watched.begin(), watched.end()}));
    EXPECT_EQ(watched.size(), 106U);
}

TEST_F(AccessorSpyTest, AnswersInTheLibrarysPlace) {
    char name[15]{};
    spy.answer("get_dna_subjects_from_index", "ANY");
    EXPECT_EQ(get_dna_subjects_from_index(name, Dna_subjects{1}), 0);
    EXPECT_STREQ(name, "ANY");
    spy.fail("get_dna_subjects_from_index", 4);
    EXPECT_EQ(get_dna_subjects_from_index(name, Dna_subjects{1}), 4);
    EXPECT_TRUE(spy.was_called("get_dna_subjects_from_index"));
    EXPECT_FALSE(spy.was_called("init_ModuleDna"));
}

TEST_F(AccessorSpyTest, AbortsOnAFunctionThatTheLibraryDoesNotHave) {
    auto const complaint = "the configuration library has no function \"init_ModuleDNA\"";
    EXPECT_DEATH(spy.fail("init_ModuleDNA", -1), complaint);
    EXPECT_DEATH(spy.make_throw("init_ModuleDNA", ""), complaint);
    EXPECT_DEATH(spy.answer("init_ModuleDNA", ""), complaint);
    EXPECT_DEATH(std::ignore = spy.was_called("init_ModuleDNA"), complaint);
}

} // namespace
} // namespace xpon::test
