#include <memory>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands/command.hpp"
#include "dry_run.hpp"
#include "output.hpp"
#include "rights.hpp"
#include "stored.hpp"
#include "wanted.hpp"
#include "xpon/cfgdb/printable.hpp"
#include "xpon/cfgdb/usable.hpp"

namespace xpon::logctl {

namespace {

using nlohmann::ordered_json;

/// What is wrong with a stored setting, or with a file of the database.
struct Problem {
    std::string path;
    std::string text;
};

struct Findings {
    std::size_t stored = 0;
    std::vector<Problem> settings;
    std::vector<Problem> files;
    DryRun dry_run{DryRun::Outcome::NotDone, ""};

    bool good() const {
        return settings.empty() && files.empty() && dry_run.outcome != DryRun::Outcome::Refused;
    }
};

void look_at_rows(std::vector<cfgdb::StoredSetting> const& rows, std::vector<Problem>& problems) {
    for (auto const& row : rows) {
        if (row.setting == nullptr) {
            problems.push_back({cfgdb::printable(row.path), "no such setting, the daemon ignores it"});
        } else if (!row.allowed) {
            problems.push_back({row.path, cfgdb::wrongly_stored(row.value, row.setting->kind)});
        }
    }
}

void look_at_receivers(StoredValues const& stored, std::vector<Problem>& problems) {
    std::map<std::pair<std::string, std::string>, std::string> known;
    for (int number = 1; number <= 3; ++number) {
        auto const path = fmt::format("syslog.remote.{}", number);
        auto const address = value_of(*cfgdb::find_setting(path + ".address"), stored);
        auto const port = value_of(*cfgdb::find_setting(path + ".port"), stored);
        if (address == "0.0.0.0") {
            continue;
        }
        if (auto const flaw = cfgdb::flaw_of(*cfgdb::find_setting(path + ".address"), address)) {
            problems.push_back({path + ".address", *flaw});
        }
        if (auto const [other, is_new] = known.try_emplace({address, port}, path); !is_new) {
            problems.push_back(
                {path, fmt::format("{} port {}, as {}; receivers must differ in address or port", address,
                                   port, other->second)});
        }
    }
}

/// Members of the group must be able to use the database. Says what was mended.
void look_at_rights(Context const& context, bool mends, std::vector<Problem>& problems) {
    for (auto const& wrong : wrong_rights(context.database)) {
        auto const path = wrong.path.string();
        if (!mends) {
            problems.push_back({path, wrong.problem + "; mend it, as root: logctl check --mend"});
        } else if (auto const mended = mend(wrong); mended.has_error()) {
            problems.push_back(
                {path, fmt::format("{}; cannot be mended ({})", wrong.problem, text_of(mended.error()))});
        } else {
            tell(fmt::format("mended: {}: {}", path, wrong.problem));
        }
    }
}

core::Result<Findings> look(Context const& context, bool mends) {
    Findings findings;
    look_at_rights(context, mends, findings.files);
    OUTCOME_TRY(stored, stored_values(context.database));
    findings.stored = stored.rows().size();
    look_at_rows(stored.rows(), findings.settings);
    look_at_receivers(stored, findings.settings);
    if (auto const problem = log_folder_problem(stored)) {
        findings.settings.push_back(
            {"syslog.file.path",
             *problem + "; use a folder that only root can write to: logctl set syslog.file.path=FOLDER"});
    }
    OUTCOME_TRY(wanted, Wanted::open(context));
    auto const text = wanted.text(log_config::syslog_ng_output());
    findings.dry_run = text.has_value() ? try_syslog_ng(text.value())
                                        : DryRun{DryRun::Outcome::NotDone, "these settings give no text"};
    return findings;
}

std::string_view name_of(DryRun::Outcome outcome) {
    switch (outcome) {
    case DryRun::Outcome::Loads:
        return "loads";
    case DryRun::Outcome::Refused:
        return "refused";
    case DryRun::Outcome::NotDone:
        return "not done";
    }
    return "";
}

std::string lines_of(std::vector<Problem> const& problems) {
    std::string lines;
    for (auto const& [path, problem] : problems) {
        lines += fmt::format("  {}: {}\n", path, problem);
    }
    return lines;
}

std::string to_text(Findings const& findings) {
    auto text = findings.settings.empty() ? fmt::format("settings: {} stored, all valid\n", findings.stored)
                                          : fmt::format("settings: {} stored, {} wrong\n", findings.stored,
                                                        findings.settings.size());
    text += lines_of(findings.settings);
    if (!findings.files.empty()) {
        text += fmt::format("files: {} wrong\n", findings.files.size()) + lines_of(findings.files);
    }
    auto const& [outcome, reason] = findings.dry_run;
    switch (outcome) {
    case DryRun::Outcome::Loads:
        text += "syslog-ng: starts with the generated text\n";
        break;
    case DryRun::Outcome::Refused:
        text += fmt::format("syslog-ng: refuses the generated text: {}\n", reason);
        break;
    case DryRun::Outcome::NotDone:
        text += fmt::format("syslog-ng: the dry run could not be done: {}\n", reason);
        break;
    }
    return text;
}

std::string to_json(Findings const& findings) {
    auto problems = ordered_json::array();
    for (auto const* some : {&findings.settings, &findings.files}) {
        for (auto const& [path, problem] : *some) {
            problems.push_back({{"path", path}, {"problem", problem}});
        }
    }
    ordered_json const whole{
        {"good", findings.good()},
        {"stored", findings.stored},
        {"problems", problems},
        {"dry_run", {{"state", name_of(findings.dry_run.outcome)}, {"reason", findings.dry_run.reason}}}};
    return whole.dump(2) + "\n";
}

struct Options {
    bool json = false;
    bool mend = false;
};

core::Result<int> check(Context const& context, Options const& options) {
    OUTCOME_TRY(findings, look(context, options.mend));
    print(options.json ? to_json(findings) : to_text(findings));
    return findings.good() ? 0 : 1;
}

} // namespace

Action check_command(Arguments& arguments) {
    auto const options = std::make_shared<Options>();
    arguments.add({"--json", "Print one JSON object"}, options->json);
    arguments.add({"--mend", "As root: give the group xpon the access to the database that it needs"},
                  options->mend);
    return [options](Context const& context) { return check(context, *options); };
}

} // namespace xpon::logctl
