#include "board/processes.hpp"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <fmt/format.h>
#include <unistd.h>

#include "file_text.hpp"
#include "number_in.hpp"

namespace xpon::logctl {

namespace {

/// What /proc says of a process.
struct Stat {
    std::string name;
    char state;
    int session;
    unsigned terminal;
    std::int64_t start; ///< in clock ticks since the boot
};

/// Nothing if the process is gone.
std::optional<Stat> stat_of(unsigned pid) {
    auto const text = file_text(fmt::format("/proc/{}/stat", pid)).value_or("");
    auto const name_begin = text.find('(');
    auto const name_end = text.rfind(')'); // the name may hold anything
    if (name_begin == std::string::npos || name_end == std::string::npos) {
        return std::nullopt;
    }
    Stat stat{text.substr(name_begin + 1, name_end - name_begin - 1), 0, 0, 0, 0};
    std::istringstream rest{text.substr(name_end + 1)};
    std::string skipped;
    rest >> stat.state >> skipped >> skipped >> stat.session >> stat.terminal;
    constexpr int fields_between = 14; // from the terminal to the start
    for (int field = 0; field < fields_between; ++field) {
        rest >> skipped;
    }
    rest >> stat.start;
    return rest ? std::optional{stat} : std::nullopt;
}

std::int64_t boot_time() {
    std::ifstream stat{"/proc/stat"};
    for (std::string word; stat >> word;) {
        if (word == "btime") {
            std::int64_t seconds = 0;
            stat >> seconds;
            return seconds;
        }
    }
    return 0;
}

} // namespace

std::optional<Process> find_process(std::string const& name) {
    std::optional<Process> found;
    for (auto const pid : numbers_in("/proc")) {
        auto const stat = stat_of(pid);
        if (!stat || stat->name != name) {
            continue;
        }
        auto const since = boot_time() + stat->start / sysconf(_SC_CLK_TCK);
        if (!found || since < found->since) {
            found = Process{static_cast<int>(pid), since, stat->state == 'T' || stat->state == 't'};
        }
    }
    return found;
}

std::optional<Holder> holder_of_terminal(unsigned number) {
    // The kernel's number of /dev/pts/N: major 136, with the minor's upper bits above it.
    auto const device = (number & 0xFFU) | 136U << 8U | (number & ~0xFFU) << 12U;
    for (auto const pid : numbers_in("/proc")) {
        auto const stat = stat_of(pid);
        if (stat && stat->terminal == device && stat->session == static_cast<int>(pid)) {
            return Holder{stat->session, stat->name};
        }
    }
    return std::nullopt;
}

std::vector<unsigned> numbers_in(std::string const& folder) {
    std::vector<unsigned> numbers;
    std::error_code failed;
    for (std::filesystem::directory_iterator entry{folder, failed}, end; !failed && entry != end;
         entry.increment(failed)) {
        if (auto const number = number_in<unsigned>(entry->path().filename().native())) {
            numbers.push_back(*number);
        }
    }
    std::ranges::sort(numbers);
    return numbers;
}

} // namespace xpon::logctl
