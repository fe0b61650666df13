// Overlapping trials, changes of others, lost time and killed processes, at random, against a plain model of
// what the settings should be. XPON_ROUNDS sets the number of rounds.

#include <algorithm>
#include <array>
#include <csignal>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/unique_fd.hpp"
#include "kit/child_process.hpp"
#include "kit/fifo.hpp"
#include "kit/random.hpp"
#include "kit/report.hpp"
#include "logctl.hpp"
#include "xpon/cfgdb/history.hpp"
#include "xpon/cfgdb/trial.hpp"

namespace xpon::logctl {
namespace {

using Values = std::map<std::string, std::string>;

/// The settings and their trials, as an operator would keep them on paper.
struct Model {
    struct Trial {
        Values before;
        bool over = false;
        bool temporary = false;
        bool operator==(Trial const&) const = default;
    };

    Values values{{"syslog.rsh.level", "notice"},         {"syslog.kernel.level", "warning"},
                  {"module.snmp.TRAP", "notice"},         {"module.fsm_pon.ont.3.17", "notice"},
                  {"syslog.remote.1.address", "0.0.0.0"}, {"syslog.remote.2.address", "0.0.0.0"},
                  {"syslog.remote.3.address", "0.0.0.0"}};
    std::map<int, Trial> trials;
    int number = 0; ///< of the newest transaction

    bool operator==(Model const&) const = default;

    static bool clashes(Values const& all) {
        std::set<std::string> known;
        return std::ranges::any_of(all, [&](auto const& one) {
            return one.first.starts_with("syslog.remote.") && one.second != "0.0.0.0" &&
                   !known.insert(one.second).second;
        });
    }

    int trial_of(std::string const& path) const {
        for (auto const& [id, trial] : trials) {
            if (trial.before.contains(path)) {
                return id;
            }
        }
        return 0;
    }

    void set(Values const& wanted) {
        auto after = values;
        bool changes = false;
        for (auto const& [path, value] : wanted) {
            changes = changes || after.at(path) != value || trial_of(path) != 0;
            after[path] = value;
        }
        if (clashes(after)) {
            return;
        }
        values = after;
        for (auto const& [path, _] : wanted) {
            for (auto& [id, trial] : trials) {
                trial.before.erase(path);
            }
        }
        std::erase_if(trials, [](auto const& one) { return one.second.before.empty(); });
        number += changes ? 1 : 0;
    }

    void start(Values const& wanted, bool temporary) {
        if (std::ranges::any_of(wanted, [this](auto const& one) { return trial_of(one.first) != 0; })) {
            return;
        }
        auto const before = *this;
        set(wanted);
        if (number == before.number) {
            return;
        }
        auto& trial = trials[number];
        trial.temporary = temporary;
        for (auto const& [path, value] : wanted) {
            if (before.values.at(path) != value) {
                trial.before[path] = before.values.at(path);
            }
        }
    }

    void undo(int id) {
        auto const before = trials.at(id).before;
        trials.erase(id);
        auto after = values;
        for (auto const& [path, value] : before) {
            after[path] = value;
        }
        if (clashes(after)) { // put back what can be, until nothing more can
            after = values;
            auto left = before;
            for (bool again = true; again;) {
                again = false;
                for (auto const& [path, value] : Values{left}) {
                    auto more = after;
                    more[path] = value;
                    if (!clashes(more)) {
                        after = more;
                        left.erase(path);
                        again = true;
                    }
                }
            }
        }
        number += after != values ? 1 : 0;
        values = after;
    }

    /// Every command does it first.
    void end_overdue() {
        std::vector<int> over;
        for (auto const& [id, trial] : trials) {
            if (trial.over) {
                over.push_back(id);
            }
        }
        std::ranges::for_each(over, [this](int id) { undo(id); });
    }
};

void PrintTo(Model const& model, std::ostream* out) {
    *out << fmt::format("{}: {}", model.number, model.values);
    for (auto const& [id, trial] : model.trials) {
        *out << fmt::format("\n  trial {}{}: {}", id, trial.over ? " (over)" : "", trial.before);
    }
}

class TrialRounds : public testing::Test {
  protected:
    void SetUp() override { run({"reset", "*"}); }
    void TearDown() override { run({"reset", "*"}); } // ends all trials, and with them their processes

    std::vector<std::string> command(Logctl::Words const& words) const {
        Logctl::Words argv{LOGCTL_PROGRAM, "--create", "--database", logctl.database.string()};
        argv.insert(argv.end(), words.begin(), words.end());
        return argv;
    }

    int run(Logctl::Words const& words) const {
        test::ChildProcess process{{.argv = command(words), .output = "/dev/null"}};
        return process.wait().value_or(-1);
    }

    Model stored() const {
        Model model;
        auto const rows = cfgdb::stored_settings(logctl.database);
        EXPECT_TRUE(rows.has_value());
        for (auto const& row : rows.value()) {
            model.values[row.path] = row.value;
        }
        auto const trials = cfgdb::pending_trials(logctl.database);
        EXPECT_TRUE(trials.has_value());
        for (auto const& trial : trials.value()) {
            auto& known = model.trials[static_cast<int>(trial.number)];
            known.over = trial.terms.end.over();
            known.temporary = trial.terms.temporary;
            for (auto const& [path, before] : trial.settings) {
                known.before[path] = before;
            }
        }
        auto const history = cfgdb::history(logctl.database).value();
        model.number = history.empty() ? 0 : static_cast<int>(history.back().number);
        return model;
    }

    std::size_t below(std::size_t limit) { return test::below(random, limit); }

    template <class Container>
    auto const& one_of(Container const& all) {
        return *std::next(all.begin(), static_cast<std::ptrdiff_t>(below(all.size())));
    }

    /// A few settings with values, some of which they have already.
    Values some_values() {
        static constexpr std::array levels{"error", "notice", "debug"};
        static constexpr std::array addresses{"0.0.0.0", "192.0.2.1", "192.0.2.2"};
        Values wanted;
        for (auto count = 1 + below(3); count > 0; --count) {
            auto const& path = one_of(model.values).first;
            wanted[path] = path.starts_with("syslog.remote") ? one_of(addresses) : one_of(levels);
        }
        return wanted;
    }

    static Logctl::Words words(Logctl::Words all, Values const& wanted) {
        for (auto const& [path, value] : wanted) {
            all.push_back(path + "=" + value);
        }
        return all;
    }

    struct Step {
        Logctl::Words words;
        Model after; ///< if it is done
    };

    /// A command, and what it makes of the model.
    Step any_command() {
        Step step{{}, model};
        auto const wanted = some_values();
        auto const id = model.trials.empty() ? 1 : one_of(model.trials).first;
        step.after.end_overdue();
        auto& [all, after] = step;
        bool const pending = after.trials.contains(id);
        switch (below(7)) {
        case 0:
        case 1:
            all = words({"set"}, wanted);
            after.set(wanted);
            break;
        case 2:
        case 3:
            all = words({"commit-confirm", "60"}, wanted);
            after.start(wanted, false);
            break;
        case 4:
            all = words({"set", "--for", "1h"}, wanted);
            after.start(wanted, true);
            break;
        case 5:
            all = {"confirm", std::to_string(id)};
            after.trials.erase(id);
            break;
        case 6:
            all = {one_of(std::array{"abort", "extend"}), std::to_string(id)};
            if (all.front() == "extend") {
                all.emplace_back("5m");
            } else if (pending) {
                after.undo(id);
            }
            break;
        default:
            break;
        }
        return step;
    }

    void expect(Model const& wanted, std::string const& what) {
        EXPECT_EQ(stored(), wanted) << what;
        model = wanted;
    }

    /// It ends by itself or is killed after a moment; either it was done or not.
    void kill_within(Step const& step) {
        {
            test::ChildProcess process{{.argv = command(step.words), .output = "/dev/null"}};
            process.wait(std::chrono::milliseconds{below(25)});
            process.kill(SIGKILL);
            process.wait();
        }
        auto undone = model;
        undone.end_overdue();
        EXPECT_TRUE(cfgdb::settle(logctl.database).has_value());
        run({"trials"}); // ends what the killed one may have left
        expect(stored() == step.after ? step.after : undone,
               fmt::format("killed: {}\nelse: {}", fmt::join(step.words, " "),
                           testing::PrintToString(step.after)));
    }

    /// The disk takes nothing: nothing is done. With room again all is.
    void without_room(Step const& step) {
        auto const limit = [this](Logctl::Words const& words) {
            Logctl::Words argv{"bash", "-c", R"(trap "" XFSZ; ulimit -f 0; exec "$@")", "bash"};
            auto const all = command(words);
            argv.insert(argv.end(), all.begin(), all.end());
            test::ChildProcess process{{.argv = argv, .output = "/dev/null"}};
            return process.wait().value_or(-1);
        };
        std::ignore = limit(step.words);
        std::ignore = limit({"commit-confirm", "--recover"});
        expect(model, "no room: " + fmt::format("{}", fmt::join(step.words, " ")));
        end_overdue("--recover");
    }

    /// Nobody reads what it prints, and it stands there until the round is over.
    void into_a_full_pipe() {
        auto const wanted = some_values();
        auto after = model;
        after.end_overdue();
        after.start(wanted, false);
        std::filesystem::remove(logctl.scratch / "full");
        test::Fifo const full{logctl.scratch / "full"};
        core::UniqueFd const pipe{open(full.path().c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC)};
        std::array<char, 4096> const page{};
        while (write(pipe.get(), page.data(), page.size()) > 0) {
        }
        test::ChildProcess const stuck{
            {.argv = command(words({"commit-confirm", "-v", "60"}, wanted)), .output = full.path()}};
        EXPECT_TRUE(test::wait_until([&] { return stored() == after; })) << testing::PrintToString(after);
        expect(after, "stopped at its output");
        pass_time();
        end_overdue("--recover");
    }

    /// Of one trial, or of all at a reboot.
    void pass_time() {
        if (model.trials.empty()) {
            return;
        }
        if (below(4) == 0) {
            logctl.sql("UPDATE pending SET boot = 'an earlier one'");
            for (auto& [id, trial] : model.trials) {
                trial.over = true;
            }
        } else {
            auto const id = one_of(model.trials).first;
            logctl.sql(fmt::format("UPDATE pending SET until = 1 WHERE number = {}", id).c_str());
            model.trials.at(id).over = true;
        }
    }

    /// Somebody else writes for longer than anybody waits.
    void while_locked() {
        sqlite3* other = nullptr;
        sqlite3_open(logctl.file.c_str(), &other);
        sqlite3_busy_timeout(other, 20000); // a process in the background may look just then
        EXPECT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
        std::ignore = run({"commit-confirm", "--recover"});
        EXPECT_EQ(stored(), model) << "locked";
        sqlite3_close(other);
        end_overdue("--recover");
    }

    /// By the unit at boot, a timer, or a process in the background.
    void end_overdue(std::string const& program) {
        auto after = model;
        after.end_overdue();
        Logctl::Words words{"commit-confirm", program};
        if (program == "--guard") {
            words.emplace_back("1");
        }
        EXPECT_EQ(run(words), 0);
        expect(after, program);
    }

    void round() {
        for (int step = 0; step < 3; ++step) {
            auto const next = any_command();
            run(next.words);
            expect(next.after, fmt::format("{}", fmt::join(next.words, " ")));
        }
        pass_time();
        auto const event = below(40);
        if (event < 10) {
            kill_within(any_command());
        } else if (event < 15) {
            auto after = model;
            after.end_overdue();
            kill_within({one_of(std::array{Logctl::Words{"commit-confirm", "--recover"},
                                           Logctl::Words{"commit-confirm", "--guard", "1"}}),
                         after});
        } else if (event < 20) {
            without_room(any_command());
        } else if (event < 25) {
            into_a_full_pipe();
        } else if (event < 26) {
            while_locked();
        } else {
            end_overdue(event < 32 ? "--guard" : "--recover");
        }
    }

    Logctl logctl;
    Model model;
    test::Random random = test::seeded();
};

TEST_F(TrialRounds, EndAsAPlainModelOfThemSays) {
    auto const rounds = test::rounds(20);
    for (int i = 0; i < rounds && !HasFailure(); ++i) {
        SCOPED_TRACE(fmt::format("round {}", i));
        round();
    }
    // At the end everything is over, and nothing is left on.
    logctl.sql("UPDATE pending SET until = 1");
    for (auto& [id, trial] : model.trials) {
        trial.over = true;
    }
    model.end_overdue();
    run({"trials"});
    expect(model, "at the very end");
    EXPECT_TRUE(model.trials.empty());
    if (!HasFailure()) {
        test::report(fmt::format(
            "trials against a plain model\toverlapping trials, changes of others, a reboot, kills, "
            "a full disk, a terminal that stands still; {} rounds\tnone lost, none undone wrongly",
            rounds));
    }
}

} // namespace
} // namespace xpon::logctl
