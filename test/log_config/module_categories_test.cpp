#include "xpon/log_config/zlog/module_categories.hpp"

#include <cstring>

#include <gmock/gmock.h>

#include "kit/accessor_spy.hpp"
#include "kit/matchers.hpp"

namespace xpon::log_config {
namespace {

using core::Error;
using test::AccessorSpy;
using test::IsError;
using test::IsOk;
using testing::ElementsAre;

constexpr auto dna = Modules_names{1};
constexpr auto acs_custom = Modules_names{39};

/// A lookup over a list of names.
SubjectLookup naming(std::vector<std::string> names) {
    return [names = std::move(names)](char* out, std::size_t index) {
        if (index >= names.size()) {
            return -5;
        }
        std::memcpy(out, names[index].data(), names[index].size());
        return 0;
    };
}

std::vector<std::string> categories_of(Modules_names module, std::vector<std::string> const& subjects,
                                       SubjectFormatter const& formatter = {}) {
    std::vector<std::string> categories;
    EXPECT_THAT(append_module_categories(categories, module, subjects.size(), naming(subjects), formatter),
                IsOk());
    return categories;
}

TEST(ModuleCategories, SelfIsTheStemAndEveryOtherSubjectFollowsAnUnderscore) {
    EXPECT_THAT(categories_of(dna, {"SELF", "IGMP"}), ElementsAre("DNA", "DNA_IGMP"));
    EXPECT_THAT(categories_of(dna, {"SELFISH", "self", ""}), ElementsAre("DNA_SELFISH", "DNA_self", "DNA_"));
}

TEST(ModuleCategories, TheFirstUnderscoreBefore1BecomesAHyphen) {
    EXPECT_THAT(categories_of(dna, {"1LAYER", "1C_1D", "B_1C_1D", "11", "21"}),
                ElementsAre("DNA-LAYER", "DNA-C_1D", "DNA_B-C_1D", "DNA-1", "DNA_21"));
}

TEST(ModuleCategories, TheRuleRunsOverTheStemToo) {
    EXPECT_THAT(categories_of(acs_custom, {"SELF", "1X"}), ElementsAre("ACS_CUST", "ACS_CUST-X"));
    AccessorSpy spy;
    spy.answer("get_modules_names_from_index", "AB_1C");
    EXPECT_THAT(categories_of(dna, {"SELF", "1D", "X"}), ElementsAre("AB-C", "AB-C_1D", "AB-C_X"));
}

TEST(ModuleCategories, ANameMayFillItsBuffer) {
    EXPECT_THAT(categories_of(dna, {"ABCDEFGHIJKLMNO"}), ElementsAre("DNA_ABCDEFGHIJKLMNO"));
}

TEST(ModuleCategories, TheFormatterSeesTheSubjectAlone) {
    EXPECT_THAT(categories_of(dna, {"SELF", "CUSTOM_1LAYER"}, custom_layer_formatter),
                ElementsAre("DNA", "DNA_C-L"));
    EXPECT_THAT(categories_of(dna, {"CUSTOM_1LAYER"}), ElementsAre("DNA_CUSTOM-LAYER"));
    EXPECT_THAT(categories_of(dna, {"X"}, [](std::string& subject) { subject = "SELF"; }),
                ElementsAre("DNA"));
}

TEST(ModuleCategories, ASubjectLookupThatFailsKeepsTheCategoriesBeforeIt) {
    std::vector<std::string> categories;
    EXPECT_THAT(append_module_categories(categories, Modules_names{16}, 5, naming({"SELF", "IPC"}), {}),
                IsError(Error::CommonError, "Failed get_subject_from_index(2) for module 16 - -5"));
    EXPECT_THAT(categories, ElementsAre("SWITCH", "SWITCH_IPC"));
}

TEST(ModuleCategories, AStemLookupThatFailsEndsItBeforeAnySubject) {
    AccessorSpy spy;
    spy.fail("get_modules_names_from_index", 3);
    std::vector<std::string> categories;
    EXPECT_THAT(append_module_categories(categories, dna, 1, naming({"SELF"}), {}),
                IsError(Error::CommonError, "Failed get_modules_names_from_index(1) - 3"));
    EXPECT_TRUE(categories.empty());
}

TEST(ModuleCategories, BothBuffersAreZeroedBeforeEachLookup) {
    std::vector<std::string> categories;
    auto const lookup = [](char* out, std::size_t index) {
        for (int place = 0; place < 15; ++place) {
            EXPECT_EQ(out[place], '\0');
        }
        std::memset(out, 'A', index == 0 ? 15 : 1);
        return 0;
    };
    EXPECT_THAT(append_module_categories(categories, dna, 2, lookup, {}), IsOk());
    EXPECT_THAT(categories, ElementsAre("DNA_AAAAAAAAAAAAAAA", "DNA_A"));

    // Stems without a zero at their end: what a call has left on the stack would follow the next one.
    AccessorSpy spy;
    spy.answer("get_modules_names_from_index", "BBBBBBBBBBBBBBB");
    EXPECT_THAT(categories_of(dna, {"SELF"}), ElementsAre("BBBBBBBBBBBBBBB"));
    spy.answer("get_modules_names_from_index", "C");
    EXPECT_THAT(categories_of(dna, {"SELF"}), ElementsAre("C"));
}

TEST(CustomLayerFormatter, ReplacesTheFirstOccurrenceOnly) {
    constexpr std::pair<char const*, char const*> cases[] = {
        {"CUSTOM_1LAYER", "C-L"},
        {"CUSTOM_1LAYER_X", "C-L_X"},
        {"XCUSTOM_1LAYER", "XC-L"},
        {"CUSTOM_1LAYERCUSTOM_1LAYER", "C-LCUSTOM_1LAYER"},
        {"CUSTOM_1LAYE", "CUSTOM_1LAYE"},
        {"custom_1layer", "custom_1layer"},
        {"CUSTOM_2LAYER", "CUSTOM_2LAYER"},
        {"SELF", "SELF"},
        {"", ""},
    };
    for (auto const& [before, after] : cases) {
        std::string subject = before;
        custom_layer_formatter(subject);
        EXPECT_EQ(subject, after) << before;
    }
}

} // namespace
} // namespace xpon::log_config
