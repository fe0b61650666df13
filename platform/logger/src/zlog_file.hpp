#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "zlog_format.hpp"

namespace xpon::logger {

/// How a category's lines look at each level; nothing where no rule switches the level on.
using ZlogCategory = std::array<std::shared_ptr<ZlogFormat const>, zlog_level_names.size()>;

/// What a zlog configuration file says, as far as this system's files go: [global] with the default format,
/// [formats], and [rules] that send single levels of single categories to syslog. Of two rules for the same
/// category and level the later one holds.
struct ZlogFile {
    struct Problem {
        std::size_t line = 0; // from 1; 0 for the file as a whole
        std::string what;
    };

    std::shared_ptr<ZlogFormat const> default_format = ZlogFormat::built_in();
    std::map<std::string, ZlogCategory> categories;
    std::vector<Problem> problems; // in the order of the lines; empty for a file that is whole
};

/// Reads the text of a file; a line that cannot be read is a problem and changes nothing.
ZlogFile read_zlog_file(std::string_view text);

/// What is known of a file that cannot be read at all.
ZlogFile unreadable_zlog_file(std::string reason);

} // namespace xpon::logger
