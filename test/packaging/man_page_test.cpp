// log-config-settings(5) against the catalogue as logctl shows it.

#include <algorithm>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "kit/child_process.hpp"
#include "kit/scratch_folder.hpp"
#include "xpon/cfgdb/settings.hpp"

namespace xpon::test {
namespace {

std::vector<std::string> split(std::string const& text, char separator) {
    std::vector<std::string> parts;
    std::istringstream stream{text};
    for (std::string part; std::getline(stream, part, separator);) {
        parts.push_back(part);
    }
    return parts;
}

/// The rows of one of the page's tables, between its two comments.
std::vector<std::vector<std::string>> table(std::string const& name) {
    auto const page = read_file(XPON_PACKAGING "/man/log-config-settings.5");
    auto const begin = page.find(".\\\" table: " + name + "\n");
    auto const end = page.find(".\\\" table: end\n", begin);
    EXPECT_NE(begin, std::string::npos) << name;
    auto text = page.substr(begin, end - begin);
    // A long field: T{, its lines, T}.
    text = std::regex_replace(text, std::regex{"T\\{\n([^}]*)\nT\\}"}, "$1");
    std::vector<std::vector<std::string>> rows;
    auto lines = split(text, '\n');
    for (auto line = lines.begin() + 1; line != lines.end(); ++line) {
        rows.push_back(split(*line, ';'));
    }
    return rows;
}

/// A path with ranges such as 1-16, as all the paths it stands for.
std::vector<std::string> paths_of(std::string const& row) {
    std::vector<std::string> paths{""};
    for (auto const& part : split(row, '.')) {
        std::vector<std::string> parts{part};
        if (std::smatch range; std::regex_match(part, range, std::regex{"(\\d+)-(\\d+)"})) {
            parts.clear();
            for (int number = std::stoi(range[1]); number <= std::stoi(range[2]); ++number) {
                parts.push_back(std::to_string(number));
            }
        }
        std::vector<std::string> longer;
        for (auto const& path : paths) {
            for (auto const& next : parts) {
                longer.push_back(path.empty() ? next : path + "." + next);
            }
        }
        paths = longer;
    }
    return paths;
}

using Row = std::tuple<std::string, std::string, std::string>; // path, default, what is allowed

std::string allowed_in_words(std::string const& path) {
    auto const* const setting = cfgdb::find_setting(path);
    if (setting == nullptr || setting->built_in()) {
        return "nothing";
    }
    return setting->kind == cfgdb::Kind::Level ? "level" : std::string{cfgdb::allowed(setting->kind)};
}

/// Everything that logctl shows of a new database.
std::vector<Row> catalogue() {
    ScratchFolder folder;
    auto const run = [&](std::vector<std::string> arguments) {
        std::vector<std::string> argv{LOGCTL_PROGRAM, "--database", folder / "cfgdb"};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        ChildProcess logctl{{.argv = argv, .output = folder / "output"}};
        EXPECT_EQ(logctl.wait(), 0) << read_file(folder / "output");
    };
    run({"set", "--create", "syslog.file.level=info"});
    std::filesystem::remove(folder / "output");
    run({"show", "--json", "syslog", "module", "module.fsm_pon.ont"});
    std::vector<Row> rows;
    for (auto const& shown : nlohmann::json::parse(read_file(folder / "output"))) {
        auto const& value = shown["default"];
        auto const path = shown["path"].get<std::string>();
        rows.emplace_back(path, value.is_string() ? value.get<std::string>() : value.dump(),
                          allowed_in_words(path));
    }
    return rows;
}

TEST(SettingsManPage, HasEverySettingWithItsDefaultAndRange) {
    std::vector<Row> rows;
    for (auto const& row : table("settings")) {
        ASSERT_EQ(row.size(), 3U);
        for (auto const& path : paths_of(row[0])) {
            rows.emplace_back(path, row[1], row[2]);
        }
    }
    auto const add = [&rows](std::string const& module, std::string const& subjects, std::string const& level,
                             std::string const& allowed) {
        for (auto const& subject : split(subjects, ' ')) {
            rows.emplace_back(module + "." + subject, level, allowed);
        }
    };
    for (auto const& row : table("modules")) {
        ASSERT_EQ(row.size(), 2U);
        add(row[0], row[1], "notice", "level");
    }
    for (auto const& row : table("built-in")) {
        ASSERT_EQ(row.size(), 3U);
        add(row[0], row[2], row[1], "nothing");
    }
    auto expected = catalogue();
    ASSERT_GT(expected.size(), 4096U);
    std::ranges::sort(rows);
    std::ranges::sort(expected);
    EXPECT_EQ(rows, expected);
}

} // namespace
} // namespace xpon::test
