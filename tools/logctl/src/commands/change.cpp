#include "commands/change.hpp"

#include <algorithm>
#include <cstdlib>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "core/failure.hpp"
#include "folded.hpp"
#include "output.hpp"
#include "status/in_step.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"
#include "xpon/cfgdb/printable.hpp"
#include "xpon/log_config/zlog_files/module_fields.hpp"

namespace xpon::logctl {

namespace {

bool takes_effect_at_start(cfgdb::Change const& change) {
    auto const* const field = log_config::find_module_field(change.setting->field_id);
    return field != nullptr && !log_config::reaches_its_file(field->module);
}

/// Where another database than the board's is changed, nobody is expected to follow.
void tell_who_is_away(std::span<std::uint32_t const> fields, Context const& context) {
    if (context.database != cfgdb::default_folder) {
        return;
    }
    auto const daemon = find_daemon();
    auto const broker = find_broker();
    if (!daemon.works()) {
        tell(fmt::format("note: the change is not applied now: {}", text_of(daemon.notes)));
    } else if (!broker.works() && std::ranges::any_of(fields, log_config::find_module_field)) {
        tell(fmt::format("note: no module is told now: {}", text_of(broker.notes)));
    }
}

} // namespace

void add_wait_option(Arguments& arguments, WaitOptions& options) {
    arguments.add({.name = "--wait",
                   .help = "Wait until every output concerned is in step; after SECONDS (10 if not given) "
                           "give up with status 1 and the reason",
                   .type = "SECONDS",
                   .range = {{0, 3600}},
                   .whole = false,
                   .without_value = "10"},
                  options.seconds);
}

void add_change_options(Arguments& arguments, ChangeOptions& options) {
    arguments.add({"-v,--verbose", "Say what is changed"}, options.verbose);
    arguments.add({"-m,--comment", "Why, for the history", "COMMENT"}, options.comment);
    arguments.add({"--json", "Print what is changed as an array of JSON objects"}, options.json);
    arguments.add({.name = "--changed-exit",
                   .help = "Exit with this status, not 0, if something was changed",
                   .type = "N",
                   .range = {{0, 255}},
                   .without_value = "3"},
                  options.changed_exit);
    arguments.add({"--dry-run", "Check everything and say what would be changed, but change nothing"},
                  options.dry_run);
    add_wait_option(arguments, options);
}

std::string complaint_about(std::span<std::string const> assignments) {
    auto const wrong = std::ranges::find_if(
        assignments, [](auto const& text) { return text.find('=') == std::string::npos; });
    return wrong == assignments.end()
               ? ""
               : fmt::format("{} is not PATH=VALUE; write it without blanks, such as syslog.file.level=debug",
                             cfgdb::printable(*wrong));
}

core::Result<void> add_assignments(std::span<std::string const> assignments,
                                   cfgdb::Transaction& transaction) {
    for (std::string_view const assignment : assignments) {
        auto const sign = assignment.find('=');
        OUTCOME_TRY(transaction.set(assignment.substr(0, sign), assignment.substr(sign + 1)));
    }
    return core::success();
}

std::string to_json(std::vector<cfgdb::Change> const& changes) {
    auto all = nlohmann::ordered_json::array();
    for (auto const& [setting, old_value, new_value] : changes) {
        all.push_back({{"path", setting->path}, {"old", old_value}, {"new", new_value}});
    }
    return all.dump(2) + "\n";
}

void tell_changes(std::vector<cfgdb::Change> const& changes, ChangeOptions const& options) {
    if (options.json) {
        print(to_json(changes));
    } else if (options.verbose || options.dry_run) {
        print(folded_lines(changes, screen().width));
    }
    if (std::ranges::any_of(changes, takes_effect_at_start)) {
        tell("note: a level of the session manager takes effect when the daemon is next restarted, not "
             "before");
    }
}

core::Result<int> follow(std::span<std::uint32_t const> fields, bool changed, Context const& context,
                         WaitOptions const& options) {
    if (options.seconds.empty()) {
        if (changed) {
            tell_who_is_away(fields, context);
        }
        return 0;
    }
    OUTCOME_TRY(flush_output()); // what is waited for stands there already
    OUTCOME_TRY(in_step, wait_until_in_step(context, fields,
                                            std::chrono::duration<double>{std::stod(options.seconds)}));
    return in_step ? 0 : 1;
}

int status_of_success(bool changed, ChangeOptions const& options) {
    return changed && !options.changed_exit.empty() ? std::stoi(options.changed_exit) : 0;
}

core::Result<int> finish(std::span<std::uint32_t const> fields, bool changed, Context const& context,
                         ChangeOptions const& options) {
    OUTCOME_TRY(status, follow(fields, changed, context, options));
    return status == 0 ? status_of_success(changed, options) : status;
}

core::Result<void> describe(cfgdb::Transaction& transaction, std::string_view how,
                            ChangeOptions const& options) {
    constexpr std::size_t longest = 200;
    if (options.comment.size() > longest) {
        return core::fail(core::Error::InvalidInputArg, "--comment has {} bytes; it must have at most {}",
                          options.comment.size(), longest);
    }
    transaction.describe(how, options.comment);
    return core::success();
}

core::Result<int> change(cfgdb::Transaction transaction, std::string_view how, Context const& context,
                         ChangeOptions const& options) {
    OUTCOME_TRY(describe(transaction, how, options));
    OUTCOME_TRY(changes, options.dry_run ? transaction.preview(context.database)
                                         : transaction.commit(context.database));
    tell_changes(changes, options);
    return options.dry_run ? status_of_success(!changes.empty(), options)
                           : finish(transaction.fields(), !changes.empty(), context, options);
}

} // namespace xpon::logctl
