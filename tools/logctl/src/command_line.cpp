#include "command_line.hpp"

#include <algorithm>
#include <csignal>
#include <iterator>
#include <span>
#include <string_view>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "candidates.hpp"
#include "commands/command.hpp"
#include "misuse.hpp"
#include "number_in.hpp"
#include "output.hpp"
#include "stored.hpp"
#include "trials/overdue.hpp"
#include "wrapped.hpp"
#include "xpon/cfgdb/cfgdb_wrapper.hpp"
#include "xpon/cfgdb/printable.hpp"
#include "xpon/cfgdb/settings.hpp"

namespace xpon::logctl {

namespace {

constexpr int failed = 1;
constexpr int misused = 2;

struct Command {
    char const* name;
    char const* description;
    Action (*declare)(Arguments& arguments);
    /// What completes its arguments: all, the first, or those after it.
    Names (*candidates)(std::string const& begin, Context const& context) = nullptr;
    enum class Place { Any, First, Later } place = Place::First;
    enum class Database { Reads, Makes, Ignores } database = Database::Reads; ///< makes it if there is none
    bool leaves_trials = false; ///< those whose time is over do not concern it, or it ends them itself
};

using enum Command::Place;
using enum Command::Database;

Action help_command(Arguments& arguments);
Names command_names(std::string const& begin, Context const& context);

// In the order of the help.
constexpr Command commands[] = {
    {"show", "Show settings: path, value, default and where the value is stored", show_command, paths, Any},
    {"set", "Change settings, all or none", set_command, assignments, Any, Makes},
    {"reset", "Set settings to their defaults, all or none", reset_command, settable_paths, Any, Makes},
    {"apply", "Have the daemon write, reload and notify again, without changing a setting", apply_command,
     output_names, Any, Makes},
    {"modules", "Show the modules: value, stem, files, subjects, levels", modules_command, module_names},
    {"preview", "Show what the daemon would write, whether it runs or not", preview_command, output_names},
    {"status", "Show whether each output has what the settings ask for; exit status 0 if all do",
     status_command},
    {"probe", "Log a message of each severity and show where it arrives; exit status 0 if all is as set",
     probe_command},
    {"check", "Check every stored setting, and whether a private syslog-ng starts with the generated text",
     check_command},
    {"history", "Show who changed what, newest last", history_command, paths},
    {"compare", "Show how the settings differ from those after a transaction, from a file or the defaults",
     compare_command, transactions_or_files},
    {"rollback", "Undo everything after a transaction, in a new one; print the changes first",
     rollback_command, transaction_numbers},
    {"commit-confirm", "Change settings, and undo the change unless it is confirmed in time",
     commit_confirm_command, assignments, Later, Makes, true},
    {"trials", "Show the changes that end by themselves, with the time that is left", trials_command},
    {"confirm", "Make the change of a trial permanent", confirm_command, trial_numbers},
    {"abort", "End a trial now: put back what it has changed", abort_command, trial_numbers},
    {"extend", "Let a trial end later", extend_command, trial_numbers},
    {"export", "Print every setting that is not at its default, as JSON", export_command},
    {"import", "Make the configuration equal to a file from export, all or nothing", import_command, files,
     First, Makes},
    {"backup", "Copy the whole database, history included, to one file", backup_command, files},
    {"restore", "Put back a copy made by backup, all or nothing; a running daemon follows", restore_command,
     files, First, Makes},
    {"watch", "Show changes, and the notifications and answers of modules, as they happen", watch_command},
    {"help", "Show this help, or that of a command", help_command, command_names, First, Ignores, true},
};

Names command_names(std::string const& /*begin*/, Context const& /*context*/) {
    Names names;
    std::ranges::transform(commands, std::inserter(names, names.end()), &Command::name);
    return names;
}

Action help_command(Arguments& arguments) {
    auto const name = std::make_shared<std::string>();
    arguments.add({"COMMAND", "The command; the program itself if none is given"}, *name);
    auto const& program = arguments.program();
    arguments.verify([name, &program] {
        bool const known = name->empty() || command_names("", {}).contains(*name);
        return known ? "" : unknown_command(program, *name);
    });
    return [name, &program](Context const& /*context*/) -> core::Result<int> {
        print(name->empty() ? program.get_formatter()->make_help(&program, program.get_name(),
                                                                 CLI::AppFormatMode::Normal)
                            : program.get_subcommand(*name)->help(program.get_name()));
        return 0;
    };
}

void add_options(CLI::App const& app, Names& to) {
    for (auto const* option : app.get_options()) {
        if (option->get_group().empty()) {
            continue; // hidden
        }
        for (auto const& name : option->get_lnames()) {
            to.insert("--" + name);
        }
    }
}

/// Fits the help to the terminal, and writes "--wait[=SECONDS]" without a blank between.
class HelpFormat : public CLI::Formatter {
  public:
    std::string make_option(CLI::Option const* option, bool is_positional) const override {
        return entry(make_option_name(option, is_positional) + make_option_opts(option),
                     make_option_desc(option));
    }
    std::string make_subcommand(CLI::App const* command) const override {
        return entry(command->get_display_name(true), command->get_description());
    }
    std::string make_description(CLI::App const* app) const override {
        return wrapped(app->get_description(), 0, width) + "\n";
    }
    std::string make_usage(CLI::App const* app, std::string name) const override {
        constexpr std::string_view heading = "Usage: ";
        auto const usage = Formatter::make_usage(app, std::move(name));
        return fmt::format("{}{}", heading, wrapped(usage.substr(heading.size()), heading.size(), width));
    }
    std::string make_option_opts(CLI::Option const* option) const override {
        auto text = Formatter::make_option_opts(option);
        return text.starts_with(" [=") ? text.substr(1) : text;
    }

  private:
    std::string entry(std::string const& name, std::string const& description) const {
        constexpr std::size_t widest = 30;
        auto const column = std::min(widest, width / 2);
        bool const fits = name.size() + 2 < column;
        auto const begin =
            fits ? fmt::format("  {:{}}", name, column - 2) : fmt::format("  {}\n{:{}}", name, "", column);
        return begin + wrapped(description, column, width) + "\n";
    }

    std::size_t width = terminal_width();
};

/// A line up to the word that is to be completed.
struct Typed {
    Command const* command = nullptr;
    std::size_t arguments = 0; ///< of the command
    std::string option;        ///< whose value the next word is; empty if it is none
    Context context{cfgdb::default_folder};
};

bool takes_next_word(CLI::App const& app, std::string const& name) {
    auto const* const option = app.get_option_no_throw(name);
    return option != nullptr && option->get_items_expected_min() > 0;
}

Typed typed(CLI::App const& program, std::span<std::string const> words) {
    constexpr std::string_view with_folder = "--database=";
    Typed line;
    for (auto const& word : words) {
        if (!line.option.empty()) {
            if (line.option == "--database") {
                line.context.database = word;
            }
            line.option.clear();
        } else if (word.starts_with(with_folder)) {
            line.context.database = word.substr(with_folder.size());
        } else if (word.starts_with('-')) {
            bool const takes = takes_next_word(program, word) ||
                               (line.command != nullptr &&
                                takes_next_word(*program.get_subcommand(line.command->name), word));
            line.option = takes ? word : "";
        } else if (line.command != nullptr) {
            ++line.arguments;
        } else if (auto const* const found = std::ranges::find(commands, word, &Command::name);
                   found != std::end(commands)) {
            line.command = found;
        }
    }
    return line;
}

bool is_completed(Command const& command, std::size_t argument) {
    return command.candidates != nullptr &&
           (command.place == Any || (command.place == First) == (argument == 0));
}

/// What may stand in the place of the last word.
Names candidates(CLI::App const& program, std::span<std::string const> words) {
    std::string const current = words.empty() ? "" : words.back();
    auto const line = typed(program, words.first(words.empty() ? 0 : words.size() - 1));
    if (!line.option.empty() || current.starts_with("--database=")) {
        bool const folder = line.option.empty() || line.option == "--database";
        return folder ? Names{folders_of_the_shell} : Names{};
    }
    Names found;
    if (current.starts_with('-')) {
        add_options(program, found);
        if (line.command != nullptr) {
            add_options(*program.get_subcommand(line.command->name), found);
        }
    } else if (line.command == nullptr) {
        found = command_names(current, line.context);
    } else if (is_completed(*line.command, line.arguments)) {
        found = line.command->candidates(current, line.context);
    }
    std::erase_if(found, [&](auto const& candidate) {
        return !candidate.starts_with(current) && !candidate.starts_with(':');
    });
    return found;
}

/// The folder without slashes at its end.
std::filesystem::path plain_folder(std::filesystem::path const& folder) {
    auto text = folder.native();
    while (text.size() > 1 && text.ends_with('/')) {
        text.pop_back();
    }
    return text.empty() ? "." : text;
}

/// Why the command cannot do without the database of another folder than the board's; empty if it can.
std::string missing_database(std::filesystem::path const& folder, Command const& command, bool create) {
    bool const makes = command.database == Makes;
    if (command.database == Ignores || folder == cfgdb::default_folder || has_database(folder) ||
        (makes && create)) {
        return {};
    }
    return fmt::format("{}: no configuration database is there{}", folder.string(),
                       makes ? "; to make one, add --create" : "");
}

/// Refuses what is no such number. Empty where any text will do.
CLI::Validator number_check(Argument const& argument) {
    return CLI::Validator{[range = argument.range, whole = argument.whole](std::string const& given) {
                              auto const number = number_in<double>(given);
                              bool const right =
                                  number && (!whole || number_in<std::int64_t>(given)) &&
                                  (!range || (*number >= range->first && *number <= range->second));
                              auto allowed = std::string{whole ? "a whole number" : "a number"};
                              if (range) {
                                  allowed +=
                                      fmt::format(" from {:.0f} to {:.0f}", range->first, range->second);
                              }
                              return right ? "" : cfgdb::not_allowed(cfgdb::printable(given), allowed);
                          },
                          ""};
}

template <class Value>
constexpr bool is_text =
    std::is_same_v<Value, std::string> || std::is_same_v<Value, std::vector<std::string>> ||
    std::is_same_v<Value, std::optional<std::string>>;

} // namespace

template <class Value>
void Arguments::add(Argument const& argument, Value& value) {
    CLI::Option* option = nullptr;
    if constexpr (std::is_same_v<Value, bool>) {
        option = command.add_flag(argument.name, value, argument.help);
        option->disable_flag_override();
    } else if (std::is_same_v<Value, std::string> && argument.without_value != nullptr) {
        option = command.add_flag(argument.name, value, argument.help);
        option->option_text(fmt::format("[={}]", argument.type));
        option->transform(CLI::Validator{[instead = argument.without_value](std::string& given) {
                                             given = given == "true" ? instead : given;
                                             return std::string{};
                                         },
                                         ""});
    } else {
        option = command.add_option(argument.name, value, argument.help);
        option->type_name(argument.type);
        if (!std::is_same_v<Value, std::vector<std::string>>) {
            option->take_last();
        }
    }
    option->required(argument.required);
    if (argument.range || !(is_text<Value> || std::is_same_v<Value, bool>)) {
        option->check(number_check(argument));
    }
    if (argument.hidden) {
        option->group("");
    }
}

template void Arguments::add(Argument const&, bool&);
template void Arguments::add(Argument const&, std::string&);
template void Arguments::add(Argument const&, std::vector<std::string>&);
template void Arguments::add(Argument const&, std::int64_t&);
template void Arguments::add(Argument const&, std::optional<std::string>&);
template void Arguments::add(Argument const&, std::optional<std::int64_t>&);
template void Arguments::add(Argument const&, std::optional<std::size_t>&);
template void Arguments::add(Argument const&, std::optional<double>&);

CLI::App const& Arguments::program() const {
    return *command.get_parent();
}

void Arguments::verify(std::function<std::string()> const& complaint) {
    command.callback([complaint] {
        if (auto const text = complaint(); !text.empty()) {
            throw CLI::ValidationError{text};
        }
    });
}

int run(int argc, char** argv) {
    // Whoever starts logctl may ignore it, and the kernel then keeps no exit status of the programs it runs.
    std::signal(SIGCHLD, SIG_DFL);

    CLI::App program{"Show and change the board's log settings, whether the daemon runs or not.", "logctl"};
    program.formatter(std::make_shared<HelpFormat>());
    program.set_version_flag("--version", "logctl " LOGCTL_VERSION);
    program.get_formatter()->label("SUBCOMMAND", "COMMAND");
    program.get_formatter()->label("Positionals", "Arguments");
    program.require_subcommand(1);
    program.fallthrough(); // the global options may also stand behind the command
    Context context{cfgdb::default_folder};
    program
        .add_option("--database", context.database,
                    fmt::format("Folder of the configuration database [{}]", cfgdb::default_folder))
        ->type_name("FOLDER")
        ->take_last();
    bool create = false;
    program.add_flag("--create", create, "Let a command that writes make the database of another folder")
        ->disable_flag_override();
    std::vector<std::pair<CLI::App*, Action>> actions;
    for (auto const& command : commands) {
        auto* const parsed = program.add_subcommand(command.name, command.description);
        parsed->group("Commands");
        Arguments arguments{*parsed};
        actions.emplace_back(parsed, command.declare(arguments));
    }

    // Not a command of the program's parser, which would take the words that are to be completed for its own.
    if (argc > 2 && argv[1] == std::string_view{"complete"} && argv[2] == std::string_view{"--"}) {
        std::vector<std::string> const words{argv + 3, argv + argc};
        for (auto const& candidate : candidates(program, words)) {
            print(candidate + "\n");
        }
        return flush_output().has_value() ? 0 : failed;
    }

    try {
        program.parse(argc, argv);
    } catch (CLI::Success const& asked) { // for help or the version
        return program.exit(asked);
    } catch (CLI::ParseError const& error) {
        std::vector<std::string> const words{argv + std::min(argc, 1), argv + argc};
        tell(misuse(program, words, error));
        return misused;
    }
    auto const action =
        std::ranges::find(actions, program.get_subcommands().front(), &std::pair<CLI::App*, Action>::first);
    auto const* const command =
        std::ranges::find(commands, program.get_subcommands().front()->get_name(), &Command::name);
    context.database = plain_folder(context.database);
    if (auto const missing = missing_database(context.database, *command, create); !missing.empty()) {
        tell(missing);
        return failed;
    }
    if (!command->leaves_trials) {
        // What should have done it may be gone. Where this fails it tries again and says why.
        std::ignore = end_overdue_trials(context);
    }
    auto const status = action->second(context);
    auto const written = flush_output();
    if (status.has_value() && written.has_value()) {
        return status.value();
    }
    tell(text_of(status.has_error() ? status.error() : written.error()));
    return failed;
}

} // namespace xpon::logctl
