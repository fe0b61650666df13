#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "kit/child_process.hpp"
#include "kit/scratch_folder.hpp"

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

/// The real program with a database of its own.
class Logctl {
  public:
    using Words = std::vector<std::string>;

    /// Runs the program with these words and the database's folder.
    Outcome operator()(Words const& words) const {
        Words all{"--database", database.string()};
        all.insert(all.end(), words.begin(), words.end());
        return run(all);
    }

    /// Runs the program with these words alone.
    Outcome run(Words const& words) const { return run(words, scratch / "out"); }

    Outcome run(Words const& words, std::filesystem::path const& out) const {
        auto const err = scratch / "err";
        Words argv{"bash", "-c", R"(exec "$@" > "$OUT" 2> "$ERR")", "bash", LOGCTL_PROGRAM};
        argv.insert(argv.end(), words.begin(), words.end());
        test::ChildProcess process{
            {.argv = argv, .environment = {"OUT=" + out.string(), "ERR=" + err.string(), "SUDO_USER=anna"}}};
        auto const status = process.wait();
        return {status.value_or(-1), std::filesystem::is_regular_file(out) ? test::read_file(out) : "",
                test::read_file(err)};
    }

    test::ScratchFolder scratch;
    std::filesystem::path database = scratch / "db";
    std::filesystem::path file = database / "running.db";
};

/// The text without the line break that a literal begins with.
inline std::string text(std::string_view literal) {
    return std::string{literal.substr(1)};
}

} // namespace xpon::logctl
