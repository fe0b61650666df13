#pragma once

#include <set>
#include <sstream>
#include <string>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "kit/scratch_folder.hpp"

namespace xpon::logctl {

/// Of an object and those in it. What is named by settings, levels and the like is no key.
inline void add_keys(nlohmann::json const& value, std::set<std::string>& keys) {
    static std::set<std::string> const named_by_others{"subjects", "olt",      "ports",    "onts",
                                                       "arrivals", "settings", "puts_back"};
    for (auto const& [key, below] : value.items()) {
        if (value.is_object()) {
            keys.insert(key);
        }
        if (below.is_structured() && !(value.is_object() && named_by_others.contains(key))) {
            add_keys(below, keys);
        }
    }
}

/// What is in bold in the part of logctl-json(5) on this command.
inline std::set<std::string> words_in_json_page(std::string const& command) {
    std::istringstream page{test::read_file(XPON_PACKAGING "/man/logctl-json.5")};
    std::set<std::string> words;
    bool inside = false;
    for (std::string line; std::getline(page, line);) {
        std::istringstream rest{line};
        std::string request;
        rest >> request;
        if (request == ".SS" || request == ".SH") {
            inside = false;
        }
        for (std::string word; request.starts_with(".") && rest >> word;) {
            std::erase_if(word, [](char c) { return c == ',' || c == '"' || c == '\\'; });
            inside = inside || (request == ".SS" && word == command);
            if (inside && request.starts_with(".B")) {
                words.insert(word);
            }
        }
    }
    return words;
}

/// Fails if logctl-json(5) does not explain every key that the command has printed.
inline void expect_explained(std::string const& command, std::string const& printed) {
    std::set<std::string> keys;
    add_keys(nlohmann::json::parse(printed), keys);
    EXPECT_FALSE(keys.empty()) << printed;
    EXPECT_THAT(words_in_json_page(command), testing::IsSupersetOf(keys)) << command;
}

} // namespace xpon::logctl
