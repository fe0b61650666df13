#pragma once

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kit/child_process.hpp"
#include "kit/raw_database.hpp"
#include "kit/scratch_folder.hpp"
#include "kit/wait_until.hpp"
#include "xpon/cfgdb/transaction.hpp"

namespace xpon::logctl {

/// What one run of the program left.
struct Outcome {
    int status;
    std::string out;
    std::string err;

    bool operator==(Outcome const&) const = default;
};

inline void PrintTo(Outcome const& outcome, std::ostream* out) {
    *out << "status " << outcome.status << "\n--- output\n" << outcome.out << "--- errors\n" << outcome.err;
}

/// Of a run that succeeds and has nothing to say.
inline Outcome const silence{0, "", ""};

/// Of a change of the board's own database that finds no daemon.
inline Outcome const not_applied_now{0, "",
                                     "logctl: note: the change is not applied now: log-config does not run; "
                                     "run: systemctl start log-config\n"};

/// The text without the line break that a literal begins with.
inline std::string text(std::string_view literal) {
    return std::string{literal.substr(1)};
}

/// Of a run that prints this.
inline Outcome printed(std::string_view literal) {
    return {0, text(literal), ""};
}

/// Of a run that fails for this reason.
inline Outcome refused(std::string const& reason) {
    return {1, "", "logctl: " + reason + "\n"};
}

/// The real program with a database of its own.
class Logctl {
  public:
    using Words = std::vector<std::string>;

    /// Runs the program with these words and the database's folder, where it makes the database if need be.
    Outcome operator()(Words const& words) const {
        Words all{"--create", "--database", database.string()};
        all.insert(all.end(), words.begin(), words.end());
        return run(all);
    }

    /// Runs the program with these words alone.
    Outcome run(Words const& words) const { return run(words, scratch / "out"); }

    Outcome run(Words const& words, std::filesystem::path const& out) const {
        return Running{prefix, words, out, scratch / "err"}.finish();
    }

    /// The program while it runs.
    class Running {
      public:
        Running(Words const& prefix, Words const& words, std::filesystem::path out_path,
                std::filesystem::path err_path)
          : out{std::move(out_path)}
          , err{std::move(err_path)}
          , process{command(prefix, words, out, err)} {}

        /// Waits until it has written this; false at the deadline.
        bool wait_for_error(std::string const& part) const { return wait_for(err, part); }
        bool wait_for_output(std::string const& part) const { return wait_for(out, part); }

        void kill(int signal) const { process.kill(signal); }
        Outcome finish() {
            auto const status = process.wait();
            return {status.value_or(-1), text_in(out), text_in(err)};
        }

      private:
        static test::Command command(Words const& prefix, Words const& words,
                                     std::filesystem::path const& out, std::filesystem::path const& err) {
            std::error_code ignored; // a device stays
            if (std::filesystem::is_regular_file(out, ignored)) {
                std::filesystem::remove(out, ignored);
            }
            std::filesystem::remove(err, ignored);
            Words argv{"bash", "-c", R"(exec "$@" > "$OUT" 2> "$ERR")", "bash"};
            argv.insert(argv.end(), prefix.begin(), prefix.end());
            argv.emplace_back(LOGCTL_PROGRAM);
            argv.insert(argv.end(), words.begin(), words.end());
            return {
                .argv = argv,
                .environment = {"OUT=" + out.string(), "ERR=" + err.string(), "SUDO_USER=admin", "COLUMNS="}};
        }

        static std::string text_in(std::filesystem::path const& path) {
            return std::filesystem::is_regular_file(path) ? test::read_file(path) : "";
        }

        static bool wait_for(std::filesystem::path const& path, std::string const& part) {
            return test::wait_until([&] { return text_in(path).find(part) != std::string::npos; });
        }

        std::filesystem::path out;
        std::filesystem::path err;
        test::ChildProcess process;
    };

    /// Starts the program with these words and the database's folder.
    Running start(Words const& words) const {
        Words all{"--create", "--database", database.string()};
        all.insert(all.end(), words.begin(), words.end());
        return Running{prefix, all, scratch / "running-out", scratch / "running-err"};
    }

    /// Plain SQL on the database, past every check.
    void sql(char const* statement) const { sql(statement, file); }

    static void sql(char const* statement, std::filesystem::path const& path) {
        test::RawDatabase{path, std::chrono::seconds{20}}.run(statement); // others may use it just then
    }

    /// "path=value" of every row.
    std::vector<std::string> stored() const {
        std::vector<std::string> all;
        auto const rows = cfgdb::stored_settings(database).value();
        for (auto const& row : rows) {
            all.push_back(row.path + "=" + row.value);
        }
        return all;
    }

    /// Who signs its changes: for root the one who called it through sudo, unless the login is known.
    static std::string author() { return caller().author(); }
    static cfgdb::Caller caller() {
        auto caller = cfgdb::Caller::current();
        caller.by_sudo = getuid() == 0 ? "admin" : "";
        return caller;
    }

    Words prefix; ///< a program that runs it
    test::ScratchFolder scratch;
    std::filesystem::path database = scratch / "db";
    std::filesystem::path file = database / "running.db";
};

/// The times in a text, replaced by "TIME": the tests cannot know them.
inline std::string without_times(std::string const& text) {
    static std::regex const time{R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)"};
    return std::regex_replace(text, time, "TIME");
}

} // namespace xpon::logctl
