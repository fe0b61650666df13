#include "settings_file.hpp"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <set>
#include <system_error>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "core/failure.hpp"
#include "output.hpp"
#include "xpon/cfgdb/printable.hpp"

namespace xpon::logctl {

namespace {

using cfgdb::printable;
using nlohmann::json;

constexpr std::uint64_t version = 1;

/// Takes the parser's events as they come, so that a name that appears twice is noticed and nothing
/// grows beyond what is wanted.
class Reader : public nlohmann::json_sax<json> {
  public:
    Assignments assignments;
    std::string wrong; ///< what is, if the parsing stopped

    bool start_object(std::size_t) override {
        if (depth == 2 || (depth == 1 && name != "settings")) {
            return refuse("an object");
        }
        ++depth;
        return true;
    }
    bool end_object() override {
        --depth;
        return depth > 0 || (has_version && has_settings) ||
               fail_with(fmt::format("{} is missing", has_version ? "\"settings\"" : "\"version\""));
    }
    bool key(std::string& text) override {
        name = text;
        auto& known = depth == 1 ? top_names : paths;
        if (!known.insert(text).second) {
            return fail_with(fmt::format("{} appears twice", printable(text)));
        }
        if (depth == 1 && text != "version" && text != "settings") {
            return fail_with(fmt::format("unknown name {}; only \"version\" and \"settings\" are allowed",
                                         printable(text)));
        }
        has_settings = has_settings || (depth == 1 && text == "settings");
        return true;
    }
    bool string(std::string& text) override {
        return depth == 2 ? assign(text) : refuse(fmt::format("the string {}", printable(text)));
    }
    bool number_unsigned(std::uint64_t number) override {
        if (depth == 2) {
            return assign(std::to_string(number));
        }
        if (depth == 1 && name == "version" && number == version) {
            has_version = true;
            return true;
        }
        return refuse(fmt::format("the number {}", number));
    }
    bool number_integer(std::int64_t number) override {
        return depth == 2 ? assign(std::to_string(number)) : refuse(fmt::format("the number {}", number));
    }
    bool number_float(double, std::string const& text) override {
        return refuse(fmt::format("the number {}", printable(text)));
    }
    bool boolean(bool value) override { return refuse(value ? "true" : "false"); }
    bool null() override { return refuse("null"); }
    bool binary(binary_t&) override { return refuse("binary"); }
    bool start_array(std::size_t) override { return refuse("an array"); }
    bool end_array() override { return true; }
    bool parse_error(std::size_t position, std::string const& token, json::exception const&) override {
        return fail_with(fmt::format("invalid JSON near byte {} ({})", position, printable(token)));
    }

  private:
    bool assign(std::string const& value) {
        assignments.emplace_back(name, value);
        return true;
    }
    bool refuse(std::string_view what) {
        if (depth == 0) {
            return fail_with(fmt::format("{} is not an object", what));
        }
        return fail_with(fmt::format("{} is {}; it must be {}", printable(name), what,
                                     depth == 2          ? "a string or a whole number"
                                     : name == "version" ? "the number 1"
                                                         : "an object of paths and values"));
    }
    bool fail_with(std::string reason) {
        wrong = std::move(reason);
        return false;
    }

    std::size_t depth = 0; // 1 in the outer object, 2 in the settings
    std::string name;      // the one whose value comes next
    std::set<std::string> top_names;
    std::set<std::string> paths;
    bool has_version = false;
    bool has_settings = false;
};

/// At most one byte more than may be there.
core::Result<std::string> read_all(std::string const& name) {
    struct Close {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    std::unique_ptr<std::FILE, Close> opened;
    if (name != "-") {
        opened.reset(std::fopen(name.c_str(), "re"));
        if (!opened) {
            return core::fail(core::Error::CommonError, "{}: cannot be opened ({})", name,
                              std::generic_category().message(errno));
        }
    }
    auto* const file = name == "-" ? stdin : opened.get();
    std::string text(max_settings_file_size + 1, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file));
    if (std::ferror(file) != 0) {
        return core::fail(core::Error::CommonError, "{}: cannot be read ({})", name,
                          std::generic_category().message(errno));
    }
    return text;
}

} // namespace

std::string settings_file(Assignments const& assignments) {
    auto settings = nlohmann::ordered_json::object();
    for (auto const& [path, value] : assignments) {
        settings[path] = value;
    }
    return nlohmann::ordered_json{{"version", version}, {"settings", settings}}.dump(2) + "\n";
}

core::Result<Assignments> read_settings_file(std::string const& name) {
    OUTCOME_TRY(text, read_all(name));
    auto assignments = parse_settings_file(text);
    if (assignments.has_error()) {
        return core::fail(core::Error::InvalidInputArg, "{}: {}", name == "-" ? "standard input" : name,
                          text_of(assignments.error()));
    }
    return assignments;
}

core::Result<Assignments> parse_settings_file(std::string_view text) {
    if (text.size() > max_settings_file_size) {
        return core::fail(core::Error::InvalidInputArg, "a configuration has at most {} bytes",
                          max_settings_file_size);
    }
    Reader reader;
    if (!json::sax_parse(text, &reader)) {
        return core::fail(core::Error::InvalidInputArg, "{}", reader.wrong);
    }
    return std::move(reader.assignments);
}

} // namespace xpon::logctl
