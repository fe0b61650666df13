#include "zlog_file.hpp"

#include <algorithm>
#include <utility>

#include "core/failure.hpp"

namespace xpon::logger {

namespace {

using core::Error;
using core::fail;
using core::Result;
using core::success;

constexpr std::string_view blanks = " \t";
constexpr std::string_view rule_mark = ".=";
constexpr std::string_view rule_target = ">syslog, LOG_LOCAL0;";

std::string_view trimmed(std::string_view text) {
    auto const begin = text.find_first_not_of(blanks);
    if (begin == std::string_view::npos) {
        return {};
    }
    return text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

/// A line NAME = "FORMAT".
struct Setting {
    std::string name;
    std::shared_ptr<ZlogFormat const> format;
};

Result<Setting> read_setting(std::string_view line) {
    auto const sign = line.find('=');
    if (sign == std::string_view::npos) {
        return fail(Error::InvalidInputArg, "no \"=\"");
    }
    auto const name = trimmed(line.substr(0, sign));
    auto const value = trimmed(line.substr(sign + 1));
    if (name.empty()) {
        return fail(Error::InvalidInputArg, "no name before \"=\"");
    }
    if (value.size() < 2 || !value.starts_with('"') || !value.ends_with('"')) {
        return fail(Error::InvalidInputArg, "the value of \"{}\" is not in double quotes", name);
    }
    OUTCOME_TRY(format, ZlogFormat::compile(value.substr(1, value.size() - 2)));
    return Setting{std::string{name}, std::move(format)};
}

class Reader {
  public:
    ZlogFile read(std::string_view text) {
        while (!text.empty()) {
            auto const line = text.substr(0, text.find('\n'));
            text.remove_prefix(std::min(text.size(), line.size() + 1));
            ++number;
            if (auto const result = read_line(trimmed(line)); !result) {
                file.problems.push_back({number, result.error().message()});
            }
        }
        // Such a file would switch everything off: it is the rest of one.
        if (!rules_seen) {
            file.problems.push_back({number, "the file ends without a [rules] section"});
        }
        return std::move(file);
    }

  private:
    using Section = Result<void> (Reader::*)(std::string_view line);

    Result<void> read_line(std::string_view line) {
        if (line.empty() || line.starts_with('#')) {
            return success();
        }
        if (line.starts_with('[') && line.ends_with(']')) {
            return begin_section(line);
        }
        return (this->*section)(line);
    }

    Result<void> begin_section(std::string_view name) {
        static constexpr std::pair<std::string_view, Section> sections[] = {
            {"[global]", &Reader::global_line},
            {"[formats]", &Reader::format_line},
            {"[rules]", &Reader::rule_line},
        };
        auto const* const found =
            std::ranges::find(sections, name, &std::pair<std::string_view, Section>::first);
        section = found == std::end(sections) ? &Reader::stray_line : found->second;
        rules_seen = rules_seen || section == &Reader::rule_line;
        if (found == std::end(sections)) {
            return fail(Error::InvalidInputArg, "unknown section {}", name);
        }
        return success();
    }

    Result<void> stray_line(std::string_view /*line*/) {
        return fail(Error::InvalidInputArg, "a line outside the known sections");
    }

    Result<void> global_line(std::string_view line) {
        OUTCOME_TRY(setting, read_setting(line));
        if (setting.name != "default format") {
            return fail(Error::InvalidInputArg, "unknown setting \"{}\"", setting.name);
        }
        file.default_format = std::move(setting.format);
        return success();
    }

    Result<void> format_line(std::string_view line) {
        OUTCOME_TRY(setting, read_setting(line));
        if (setting.name.find_first_of(blanks) != std::string::npos) {
            return fail(Error::InvalidInputArg, "the format's name \"{}\" contains a blank", setting.name);
        }
        formats[std::move(setting.name)] = std::move(setting.format);
        return success();
    }

    Result<void> rule_line(std::string_view line) {
        // From the right: a category may hold any character, dots and equal signs included.
        auto const mark = line.rfind(rule_mark);
        if (mark == std::string_view::npos) {
            return fail(Error::InvalidInputArg, "no \"{}LEVEL\"", rule_mark);
        }
        auto const category = line.substr(0, mark);
        if (category.empty() || category.find_first_of(blanks) != std::string_view::npos) {
            return fail(Error::InvalidInputArg, "\"{}\" is not a category", category);
        }
        line.remove_prefix(mark + rule_mark.size());
        auto const level_name = line.substr(0, line.find_first_of(blanks));
        auto const* const level = std::ranges::find(zlog_level_names, level_name);
        if (level == zlog_level_names.end()) {
            return fail(Error::InvalidInputArg, "unknown level \"{}\"", level_name);
        }
        auto const target = trimmed(line.substr(level_name.size()));
        if (!target.starts_with(rule_target)) {
            return fail(Error::InvalidInputArg, "\"{}\" must follow the level", rule_target);
        }
        OUTCOME_TRY(format, format_named(trimmed(target.substr(rule_target.size()))));
        auto const index = static_cast<std::size_t>(level - zlog_level_names.begin());
        file.categories[std::string{category}].at(index) = std::move(format);
        return success();
    }

    Result<std::shared_ptr<ZlogFormat const>> format_named(std::string_view name) const {
        if (name.empty()) {
            return file.default_format;
        }
        auto const found = formats.find(std::string{name});
        if (found == formats.end()) {
            return fail(Error::InvalidInputArg, "unknown format \"{}\"", name);
        }
        return found->second;
    }

    ZlogFile file;
    std::map<std::string, std::shared_ptr<ZlogFormat const>> formats;
    std::size_t number = 0;
    Section section = &Reader::stray_line;
    bool rules_seen = false;
};

} // namespace

ZlogFile read_zlog_file(std::string_view text) {
    return Reader{}.read(text);
}

ZlogFile unreadable_zlog_file(std::string reason) {
    ZlogFile file;
    file.problems.push_back({0, std::move(reason)});
    return file;
}

} // namespace xpon::logger
