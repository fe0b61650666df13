#include "dry_run.hpp"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <system_error>

#include <unistd.h>

#include "output.hpp"
#include "process.hpp"
#include "xpon/cfgdb/printable.hpp"

namespace xpon::logctl {

namespace {

constexpr int refused_status = 3;

// $1 is an empty folder, standard input the configuration. Lays out a root of its own in memory, so that
// every path the configuration names is private, and starts syslog-ng there. An answer on its control socket
// comes from the main loop, which runs once the whole configuration is in force.
constexpr char const* script = R"(
set -eu
mount -t tmpfs -o mode=755 check "$1"
cd "$1"
mkdir -p dev etc proc run tmp var/lib/syslog-ng
for name in usr bin sbin lib lib64; do
    if [ -L "/$name" ]; then
        cp -P "/$name" .
    elif [ -d "/$name" ]; then
        mkdir "$name"
        mount --rbind "/$name" "$name"
        mount -o remount,bind,ro "$name"
    fi
done
for name in null zero random urandom; do
    : > "dev/$name"
    mount --bind "/dev/$name" "dev/$name"
done
for name in ld.so.cache localtime machine-id passwd group syslog-ng; do
    [ ! -e "/etc/$name" ] || cp -R "/etc/$name" etc/
done
cat > check.conf
chroot . syslog-ng --foreground --no-caps --cfgfile /check.conf --persist-file /check.persist \
    --pidfile /check.pid --control /check.ctl > output 2>&1 &
for attempt in $(seq 200); do
    if ! kill -0 $! 2> /dev/null; then
        grep -v 'WARNING: ' output || true
        exit 3
    fi
    if chroot . timeout 1 syslog-ng-ctl stats --control /check.ctl > /dev/null 2>&1; then
        exit 0
    fi
    sleep 0.05
done
echo "it did not start within 10 s"
exit 3
)";

/// The first line, without the time that syslog-ng begins it with; safe to print.
std::string first_line(std::string const& text) {
    std::istringstream lines{text};
    std::string line;
    std::getline(lines, line);
    if (auto const end = line.find("] "); line.starts_with('[') && end != std::string::npos) {
        line.erase(0, end + 2);
    }
    return cfgdb::printable(line);
}

/// An empty folder, removed at the end.
class EmptyFolder {
  public:
    EmptyFolder() {
        pattern = (std::filesystem::temp_directory_path() / "logctl-check.XXXXXX").string();
        made = mkdtemp(pattern.data()) != nullptr;
    }
    ~EmptyFolder() {
        if (made) {
            rmdir(pattern.c_str()); // what was mounted there is gone with its namespace
        }
    }
    EmptyFolder(EmptyFolder const&) = delete;
    EmptyFolder& operator=(EmptyFolder const&) = delete;

    explicit operator bool() const { return made; }
    std::string const& path() const { return pattern; }

  private:
    std::string pattern;
    bool made = false;
};

} // namespace

DryRun try_syslog_ng(std::string const& text) {
    using enum DryRun::Outcome;
    if (auto const program = find_program("syslog-ng"); program.has_error()) {
        return {NotDone, text_of(program.error())};
    }
    EmptyFolder const folder;
    if (!folder) {
        return {NotDone, folder.path() + ": cannot be made (" + std::generic_category().message(errno) + ")"};
    }
    std::vector<std::string> command{"unshare", "--mount",      "--net",         "--pid",  "--ipc",
                                     "--fork",  "--kill-child", "--propagation", "private"};
    if (geteuid() != 0) {
        command.insert(command.end(), {"--user", "--map-root-user"});
    }
    command.insert(command.end(), {"sh", "-c", script, "sh", folder.path()});
    auto const done = run_program(command, text, std::chrono::seconds{30});
    if (done.has_error()) {
        return {NotDone, text_of(done.error())};
    }
    auto const& [status, out, err] = done.value();
    if (status == refused_status) {
        return {Refused, first_line(out)};
    }
    return status == 0 ? DryRun{Loads, ""}
                       : DryRun{NotDone, "no private root can be set up: " + first_line(err)};
}

} // namespace xpon::logctl
