#pragma once

#include <atomic>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "kit/golden.hpp"
#include "xpon/log_config/zlog/zlog_config_generator.hpp"
#include "xpon/log_config/zlog_files/config_files.hpp"

namespace xpon::test {

/// Reads all files all the time and finds those that are not whole. They have to be there all the time, but
/// for the zlog file named `except`, which is not looked at.
class TornFileReader {
  public:
    explicit TornFileReader(std::string_view except = {}) {
        for (auto const& entry : log_config::zlog_files) {
            if (entry.name == except) {
                continue;
            }
            auto const path = "/etc/zlog_modules_config/" + std::string{entry.name};
            categories[path] = count_of(read_file(path), ".=FATAL ");
        }
        thread = std::thread{[this] { read_all(); }};
    }
    ~TornFileReader() { stop(); }
    TornFileReader(TornFileReader const&) = delete;
    TornFileReader& operator=(TornFileReader const&) = delete;

    void stop() {
        stopped = true;
        if (thread.joinable()) {
            thread.join();
        }
    }

    long files_read = 0;           // the thread's until `stop`
    std::vector<std::string> torn; // the thread's until `stop`

  private:
    static std::size_t count_of(std::string const& text, std::string_view what) {
        std::size_t count = 0;
        for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size())) {
            ++count;
        }
        return count;
    }

    void read_all() {
        log_config::ZlogConfigGenerator generator;
        while (!stopped) {
            for (auto const& [path, count] : categories) {
                auto const text = read_file(path);
                ++files_read;
                if (!text.starts_with(generator.get_header()) || !text.ends_with("\n") ||
                    count_of(text, ".=FATAL ") != count) {
                    torn.push_back(path);
                }
            }
            auto const text = read_file("/etc/syslog-ng/syslog-ng.conf");
            ++files_read;
            if (!text.starts_with("####") || !text.ends_with("    destination(d_dhcpd);\n};\n") ||
                count_of(text, "{") != count_of(text, "}")) {
                torn.emplace_back("syslog-ng.conf");
            }
        }
    }

    std::map<std::string, std::size_t> categories; // in each zlog file: its number of fatal lines
    std::atomic<bool> stopped = false;
    std::thread thread;
};

} // namespace xpon::test
